#pragma once

#include <span>
#include <string_view>

namespace ecu::ctl {

/// What there is to know of a variable that the daemon publishes.
struct VariableInfo {
  std::string_view name;
  std::string_view meaning;
  std::string_view source_topic;  // empty: from no topic
  std::string_view signal;        // empty: from no signal
  std::string_view kind;          // of its value
  std::string_view published_when;
  std::string_view example;
};

/// All of them, in the order in which the daemon keeps them.
[[nodiscard]] std::span<const VariableInfo> variables() noexcept;

/// The variable of that name; null when there is none.
[[nodiscard]] const VariableInfo* find_variable(std::string_view name) noexcept;

}  // namespace ecu::ctl
