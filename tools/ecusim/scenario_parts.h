#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

#include <ecu/tamu/com/message.h>

#include "ecusim/json_lines.h"
#include "ecusim/scenario.h"

/// The parts of a scenario, each read by a function that throws `Fault` for the first error.
namespace ecu::sim {

/// A member with pairs of hexadecimal digits, optionally separated by spaces; nothing when it is missing.
[[nodiscard]] std::optional<tamu::com::Payload> read_hex(const ObjectReader& reader, std::string_view key);

/// The bytes of an object's "text", "hex" or "bytes"; nothing when it has none of them.
[[nodiscard]] std::optional<tamu::com::Payload> read_bytes(const ObjectReader& reader);

inline constexpr std::int64_t max_milliseconds = std::numeric_limits<std::int32_t>::max();
/// A member with a number of milliseconds; 0 when it is missing.
[[nodiscard]] std::chrono::milliseconds read_milliseconds(const ObjectReader& reader, std::string_view key);

[[nodiscard]] VehicleSetup read_vehicle(const Json& value);
[[nodiscard]] PortsSetup read_ports(const Json& value);

}  // namespace ecu::sim
