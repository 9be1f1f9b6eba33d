#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ecu::tools {

/// Whether a text may be a level of the fleet's topics, such as a unit's name: 1 to 64 bytes without '/', '+'
/// and '#', not beginning with '$', which is reserved for brokers (MQTT 3.1.1, 4.7.2). Error texts say that.
[[nodiscard]] bool is_fleet_level(std::string_view text);
inline constexpr const char* not_fleet_level =
    "is not one level of a topic, 1 to 64 bytes without '/', '+' and '#', not beginning with '$'";

/// A variable of a unit, as the broker of the fleet retains it.
struct FleetVariable {
  std::string value;
  /// When the daemon first published it; nothing if the unit's wall clock was not set.
  std::optional<std::chrono::system_clock::time_point> since{};
  std::int64_t stamp = 0;               ///< the same in nanoseconds since the unit's boot
  std::optional<std::string> daemon{};  ///< the daemon's presence; nothing if it was unknown
};

/// The message about a variable: one JSON object (RFC 8259) with the members of `FleetVariable`, in UTF-8;
/// bytes of the value that are not UTF-8 become U+FFFD. `since` is as `iso_time` writes it.
[[nodiscard]] std::string to_json(const FleetVariable& variable);

/// The inverse; nothing for any other text. Further members of the object are ignored.
[[nodiscard]] std::optional<FleetVariable> fleet_variable_from_json(std::string_view text);

}  // namespace ecu::tools
