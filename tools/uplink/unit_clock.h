#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "uplink/change_filter.h"

namespace ecu::uplink {

/// Time since 1970-01-01 UTC, beyond 2038 on 32 bits, too.
using UnixTime = std::chrono::nanoseconds;

[[nodiscard]] BootTime boot_time_now();

/// The wall clock's time; nothing while it is not set, that is, while it shows a time before this program was
/// released.
[[nodiscard]] std::optional<UnixTime> wall_time_now();

/// RFC 3339 in UTC with whole seconds, such as "2026-11-22T08:00:00Z".
[[nodiscard]] std::string rfc3339(UnixTime time);

}  // namespace ecu::uplink
