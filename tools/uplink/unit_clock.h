#pragma once

#include <optional>

#include "uplink/change_filter.h"

namespace ecu::uplink {

[[nodiscard]] BootTime boot_time_now();

/// The wall clock's time; nothing while it is not set, that is, while it shows a time before this program was
/// released.
[[nodiscard]] std::optional<WallTime> wall_time_now();

}  // namespace ecu::uplink
