#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

#include <ecu/tamu/com/message.h>

#include "ecusim/json_lines.h"
#include "ecusim/scenario.h"

/// The parts of a scenario, each read by a function that throws `Fault` for the first fault found.
namespace ecu::sim {

/// A member that is a text of pairs of hexadecimal digits, blanks between them; nothing when there is none.
[[nodiscard]] std::optional<tamu::com::Payload> read_hex(const ObjectReader& reader, std::string_view key);

/// The bytes that an object gives as "text", "hex" or "bytes"; nothing when it gives none.
[[nodiscard]] std::optional<tamu::com::Payload> read_bytes(const ObjectReader& reader);

inline constexpr std::int64_t max_milliseconds = std::numeric_limits<std::int32_t>::max();
/// A member that is a number of milliseconds; 0 when there is none.
[[nodiscard]] std::chrono::milliseconds read_milliseconds(const ObjectReader& reader, std::string_view key);

[[nodiscard]] VehicleSetup read_vehicle(const Json& value);
[[nodiscard]] PortsSetup read_ports(const Json& value);

}  // namespace ecu::sim
