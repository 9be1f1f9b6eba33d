#pragma once

#include <optional>
#include <string>

#include "uplink/change_filter.h"
#include "uplink/unit_clock.h"

namespace ecu::uplink {

/// The message about a variable: one JSON object (RFC 8259), in UTF-8; bytes of the value that are not UTF-8
/// become U+FFFD.
/// - "value": the variable's value
/// - "since": when the daemon first published it (RFC 3339, UTC, milliseconds); null while the unit's clock
/// is
///   not set
/// - "stamp": the same in nanoseconds since the unit's boot
/// - "daemon": "online" or "offline", as the daemon's presence; null while unknown
[[nodiscard]] std::string variable_message(const ChangeFilter::Value& value, std::optional<WallTime> since,
                                           const std::optional<std::string>& daemon_presence);

}  // namespace ecu::uplink
