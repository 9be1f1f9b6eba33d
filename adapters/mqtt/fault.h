#pragma once

#include <optional>
#include <string>

#include <ecu/tamu/com/connection_observer.h>

namespace ecu::tamu::com::mqtt {

/// Why a connection failed.
struct Fault {
  ConnectionFailure kind;
  std::string reason;
};

/// Empty if nothing failed.
using Failure = std::optional<Fault>;

/// The reason of every failure for lack of memory. A std::string holds it without the heap.
inline constexpr const char* out_of_memory = "out of memory";

/// The failure that `error`, a value of errno, stands for; 0 is an end of file.
[[nodiscard]] Fault fault_of_errno(int error);

/// The failure that `result`, a code of the MQTT library, stands for; it may refer to errno.
[[nodiscard]] Fault fault_of(int result);

/// The failure that `code` of a CONNACK packet stands for (MQTT 3.1.1, 3.2.2.3).
[[nodiscard]] Fault fault_of_refusal(int code);

}  // namespace ecu::tamu::com::mqtt
