#pragma once

#include <cstdint>
#include <vector>

namespace ecu::tamu::ipc {

/// One record of a queueing port.
struct IpcSignal {
  /// Identifies the contents of the payload.
  std::uint32_t id = 0;
  /// Carried along unchanged; its meaning is a matter of the two sides.
  std::uint8_t flag = 0;
  /// Carried along unchanged; its meaning is a matter of the two sides.
  std::uint64_t stamp = 0;
  /// The payload, at most `signal_t_dyn<24u>::max_payload_size` bytes on a port.
  std::vector<char> data;
};

}  // namespace ecu::tamu::ipc
