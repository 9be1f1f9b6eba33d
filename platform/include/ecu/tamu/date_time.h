#pragma once

#include <cstdint>

namespace ecu::tamu {

/// The clock of the time stamps in messages and variables.
class DateTime {
 public:
  /// Nanoseconds since boot, time spent in suspend included (CLOCK_BOOTTIME). Callable from any thread.
  [[nodiscard]] static std::uint64_t time_since_boot_ns() noexcept;
};

}  // namespace ecu::tamu
