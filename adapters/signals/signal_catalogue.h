#pragma once

#include <span>
#include <string_view>

namespace ecu::tamu::rt {

/// A topic of the real-time side and the signals that its messages may hold.
struct CatalogueEntry {
  std::string_view topic;
  std::span<const std::string_view> signals;
};

/// The catalogue's entry of `topic`, which lives as long as the process; null for a topic outside the
/// catalogue.
[[nodiscard]] const CatalogueEntry* find_topic(std::string_view topic) noexcept;

}  // namespace ecu::tamu::rt
