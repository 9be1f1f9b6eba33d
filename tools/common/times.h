#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace ecu::tools {

/// The time of day, also after 2038 on 32 bits.
[[nodiscard]] std::chrono::system_clock::time_point wall_clock_now();

/// A point in time to the millisecond, for JSON (ISO 8601, UTC) and for people (local time).
[[nodiscard]] std::string iso_time(std::chrono::system_clock::time_point at);
[[nodiscard]] std::string local_time(std::chrono::system_clock::time_point at);

/// The inverse of `iso_time`; nothing for any other text, or a time that is not in the years 1970 to 2261.
[[nodiscard]] std::optional<std::chrono::system_clock::time_point> from_iso_time(const std::string& text);

/// A duration in the largest unit that fits: "3 s", "5 min", "2 h", "4 d".
[[nodiscard]] std::string age_text(std::chrono::nanoseconds age);

}  // namespace ecu::tools
