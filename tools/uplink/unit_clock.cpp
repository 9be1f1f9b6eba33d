#include "uplink/unit_clock.h"

#include <time.h>

#include <array>

#include <ecu/tamu/date_time.h>

namespace ecu::uplink {

namespace {

// 2026-01-01T00:00:00Z
constexpr UnixTime released{1'767'225'600};

}  // namespace

BootTime boot_time_now() {
  return BootTime(tamu::DateTime::time_since_boot_ns());
}

std::optional<UnixTime> wall_time_of(BootTime at) {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  if (UnixTime(now.tv_sec) < released) {
    return std::nullopt;
  }
  const auto wall_now = std::chrono::nanoseconds(now.tv_nsec) + UnixTime(now.tv_sec);
  return std::chrono::floor<UnixTime>(wall_now - (boot_time_now() - at));
}

std::string rfc3339(UnixTime time) {
  const auto seconds = static_cast<time_t>(time.count());
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  std::array<char, 32> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%FT%TZ", &parts)};
}

}  // namespace ecu::uplink
