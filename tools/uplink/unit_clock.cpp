#include "uplink/unit_clock.h"

#include <time.h>

#include <array>

#include <ecu/tamu/date_time.h>

namespace ecu::uplink {

namespace {

// 2026-01-01T00:00:00Z
constexpr std::chrono::seconds released{1'767'225'600};

}  // namespace

BootTime boot_time_now() {
  return BootTime(tamu::DateTime::time_since_boot_ns());
}

std::optional<UnixTime> wall_time_now() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  const UnixTime time = std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
  return time < released ? std::nullopt : std::optional(time);
}

std::string rfc3339(UnixTime time) {
  const auto seconds = static_cast<time_t>(std::chrono::floor<std::chrono::seconds>(time).count());
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  std::array<char, 32> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%FT%TZ", &parts)};
}

}  // namespace ecu::uplink
