#include "uplink/unit_clock.h"

#include <ecu/tamu/date_time.h>

#include "common/times.h"

namespace ecu::uplink {

BootTime boot_time_now() {
  return BootTime(tamu::DateTime::time_since_boot_ns());
}

std::optional<WallTime> wall_time_now() {
  constexpr WallTime released(std::chrono::seconds(1'767'225'600));  // 2026-01-01T00:00:00Z
  const WallTime now = tools::wall_clock_now();
  return now < released ? std::nullopt : std::optional(now);
}

}  // namespace ecu::uplink
