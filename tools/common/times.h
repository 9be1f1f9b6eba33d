#pragma once

#include <chrono>
#include <string>

namespace ecu::tools {

/// The time of day, also after 2038 on 32 bits.
[[nodiscard]] std::chrono::system_clock::time_point wall_clock_now();

/// A point in time to the millisecond, for JSON (ISO 8601, UTC) and for people (local time).
[[nodiscard]] std::string iso_time(std::chrono::system_clock::time_point at);
[[nodiscard]] std::string local_time(std::chrono::system_clock::time_point at);

/// A duration in the largest unit that fits: "3 s", "5 min", "2 h", "4 d".
[[nodiscard]] std::string age_text(std::chrono::nanoseconds age);

}  // namespace ecu::tools
