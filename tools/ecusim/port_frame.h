#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include <ecu/tamu/ipc/ipc_signal.h>
#include <ecu/tamu/ipc/queue_port.h>

#include "ecusim/scenario.h"

/// Parameters and their frames as bytes of a queueing port. All integers are little-endian.
///
///   record                                              its payload, of a parameter
///   offset  size  content                               offset  size  content
///        0     2  0x51 0x50                                  0     4  id, that of the record
///        2     1  1 a record, 2 the end of a frame           4     4  length of the value
///        3     1  flag                                       8     n  the value
///        4     4  id
///        8     8  stamp
///       16     4  payload length
///       20     4  CRC-32 (IEEE 802.3) over bytes 0 to 19 and the payload
///       24     n  payload
///
/// The simulation encodes them itself, because a writer of the platform makes no damaged ones.
namespace ecu::sim {

inline constexpr std::uint32_t secure_master_id = 2;
inline constexpr std::uint32_t secure_remote_id = 3;
[[nodiscard]] constexpr bool is_secure_value(std::uint32_t id) noexcept {
  return id == secure_master_id || id == secure_remote_id;
}

inline constexpr std::size_t parameter_header_size = 8;
/// How many bytes the value of a parameter has at most.
inline constexpr std::size_t max_parameter_size =
    tamu::ipc::signal_t_dyn<24u>::max_payload_size - parameter_header_size;

/// The parameter that a record carries; nothing when id or length contradict the record.
[[nodiscard]] std::optional<Parameter> parameter_in(const tamu::ipc::IpcSignal& record);

/// A frame of `parameters`, as it stands on the port.
[[nodiscard]] tamu::com::Payload make_frame(const std::vector<Parameter>& parameters);

/// The same with the faults of `setup`. Whole records stand between the damaged ones, so that every parameter
/// reaches a reader that keeps what is whole and drops what is not.
[[nodiscard]] tamu::com::Payload make_faulty_frame(const std::vector<Parameter>& parameters,
                                                   const PortsSetup& setup);

}  // namespace ecu::sim
