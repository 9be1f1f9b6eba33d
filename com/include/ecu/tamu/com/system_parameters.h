#pragma once

#include <cstddef>
#include <cstdint>

#include <ecu/tamu/ipc/queue_port.h>

/// The records of system parameters on the queueing ports: identifiers on which several programs agree, and
/// the layout of the payload, which is the identifier, the length of the value (both 32 bits, little-endian)
/// and the value.
namespace ecu::tamu::com {

/// The version of the unit's software as a whole.
inline constexpr std::uint32_t top_version_id = 0xa009;

/// The values of the secure storage travel as parameters of these identifiers.
inline constexpr std::uint32_t secure_storage_master_id = 2;
inline constexpr std::uint32_t secure_storage_remote_id = 3;

/// Whether the parameter is a value of the secure storage.
[[nodiscard]] constexpr bool is_secure_storage_id(std::uint32_t id) noexcept {
  return id == secure_storage_master_id || id == secure_storage_remote_id;
}

/// Where the value begins in a record's payload, after identifier and length.
inline constexpr std::size_t parameter_value_offset = 2 * sizeof(std::uint32_t);

/// The largest value that a record can carry, in bytes.
inline constexpr std::size_t max_parameter_value_size =
    ipc::signal_t_dyn<24u>::max_payload_size - parameter_value_offset;

}  // namespace ecu::tamu::com
