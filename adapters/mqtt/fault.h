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

}  // namespace ecu::tamu::com::mqtt
