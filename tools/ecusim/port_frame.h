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
/// The simulator has its own encoder: it can write damaged records, and checks the daemon independently.
namespace ecu::sim {

/// The parameter that a record carries; nothing when id or length contradict the record.
[[nodiscard]] std::optional<Parameter> parameter_in(const tamu::ipc::IpcSignal& record);

/// A frame of `parameters`, as bytes of the port.
[[nodiscard]] tamu::com::Payload make_frame(const std::vector<Parameter>& parameters);

/// The same with the faults of `setup`. There are intact records between the damaged ones, so a reader that
/// drops only damaged records receives every parameter.
[[nodiscard]] tamu::com::Payload make_faulty_frame(const std::vector<Parameter>& parameters,
                                                   const PortsSetup& setup);

}  // namespace ecu::sim
