#include <time.h>

#include <chrono>

#include <ecu/tamu/date_time.h>

namespace ecu::tamu {

std::uint64_t DateTime::time_since_boot_ns() noexcept {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  const auto time = std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
  return static_cast<std::uint64_t>(std::chrono::nanoseconds(time).count());
}

}  // namespace ecu::tamu
