#pragma once

#include <span>
#include <string_view>

namespace ecu::ctl {

/// The description of a variable that the daemon publishes.
struct VariableInfo {
  std::string_view name;
  std::string_view meaning;
  std::string_view source_topic;  // empty: not derived from a topic
  std::string_view signal;        // empty: not derived from a signal
  std::string_view kind;          // of its value
  std::string_view published_when;
  std::string_view example;
};

/// All variables, in the order in which the daemon publishes them.
[[nodiscard]] std::span<const VariableInfo> variables() noexcept;

/// The variable of that name; null when it is not in the catalogue.
[[nodiscard]] const VariableInfo* find_variable(std::string_view name) noexcept;

}  // namespace ecu::ctl
