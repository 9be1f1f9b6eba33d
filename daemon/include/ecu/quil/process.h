#pragma once

#include <memory>

#include <ecu/quil/environment_daemon.h>
#include <ecu/tamu/com/transport_client.h>

namespace ecu::quil {

/// The objects that the signal handler stops. Both pointers are empty until `main` sets them.
struct ProcessHolder {
  std::shared_ptr<tamu::com::ITransportClient> client;
  std::shared_ptr<EnvironmentDaemon> daemon;
};

/// The holder of the process: created on first use and never destroyed, so that it is always there for a
/// signal.
[[nodiscard]] ProcessHolder& process();

/// Makes the allocator give blocks of 64 KiB and more back to the system as soon as they are freed. Left
/// alone it keeps ever larger ones after the first large message. All threads share one heap, so that what
/// one of them frees serves the others. Call before any thread is started.
void limit_kept_memory();

/// Makes an exception that nobody catches, such as one for lack of memory, one ALERT line before the process
/// ends.
void log_uncaught_exceptions();

/// Makes SIGINT and SIGTERM stop the daemon and the client once; the next one ends the process by default
/// action. Blocks both signals in the calling thread, and so in every thread that it starts later. Only the
/// wait inside the client's `run` unblocks them, where no lock is held. Call before any thread is started.
void install_signal_handler();

}  // namespace ecu::quil
