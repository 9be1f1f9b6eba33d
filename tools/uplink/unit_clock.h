#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "uplink/change_filter.h"

namespace ecu::uplink {

/// Seconds since 1970-01-01 UTC, beyond 2038 on 32 bits, too.
using UnixTime = std::chrono::duration<std::int64_t>;

[[nodiscard]] BootTime boot_time_now();

/// The wall clock's time when the boot clock showed `at`; nothing while the wall clock is not set, that is,
/// while it shows a time before this program was released.
[[nodiscard]] std::optional<UnixTime> wall_time_of(BootTime at);

/// RFC 3339 in UTC, such as "2026-11-22T08:00:00Z".
[[nodiscard]] std::string rfc3339(UnixTime time);

}  // namespace ecu::uplink
