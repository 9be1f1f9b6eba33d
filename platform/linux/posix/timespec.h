#pragma once

#include <chrono>
#include <ctime>

namespace ecu::tamu::posix {

/// A duration as system calls take it. They refuse a negative one, which the caller must exclude.
[[nodiscard]] constexpr timespec to_timespec(std::chrono::nanoseconds duration) noexcept {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
  return {.tv_sec = static_cast<std::time_t>(seconds.count()),
          .tv_nsec = static_cast<long>((duration - seconds).count())};
}

}  // namespace ecu::tamu::posix
