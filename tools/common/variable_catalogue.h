#pragma once

#include <array>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace ecu::tools {

using Json = nlohmann::ordered_json;

/// Which values a variable may have. All are texts on the bus.
struct ValueForm {
  std::string_view type;                            // "text", "boolean" or "enumeration"
  std::string_view description;                     // for people
  std::span<const std::string_view> enumeration{};  // all values; empty: not limited to a list
  std::string_view pattern{};                       // ECMAScript; matches every value; empty: any text
};

/// The description of a variable that the daemon publishes.
struct VariableInfo {
  std::string_view name;
  std::string_view meaning;
  std::array<std::string_view, 3> source_topics;  // in front of empty ones
  std::string_view signal;                        // empty: not derived from a signal
  ValueForm form;
  std::string_view published_when;
  std::string_view example;

  /// The topic on which it is published.
  [[nodiscard]] std::string topic() const;
  /// The topics from which it is derived; none for a variable of another origin.
  [[nodiscard]] std::span<const std::string_view> sources() const noexcept;
  /// Its sources in one line, "-" without any.
  [[nodiscard]] std::string sources_text() const;
};

/// All variables, in the order in which the daemon publishes them.
[[nodiscard]] std::span<const VariableInfo> variables() noexcept;

/// The variable of that name; null when it is not in the catalogue.
[[nodiscard]] const VariableInfo* find_variable(std::string_view name) noexcept;

/// The name of the variable that is published on `topic`; nothing for another topic.
[[nodiscard]] std::optional<std::string_view> variable_of(std::string_view topic);

/// The topic on which the variable of that name is published.
[[nodiscard]] std::string topic_of_variable(std::string_view name);

/// The whole description.
[[nodiscard]] Json json_of(const VariableInfo& info);

}  // namespace ecu::tools
