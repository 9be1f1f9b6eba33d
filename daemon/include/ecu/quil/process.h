#pragma once

#include <memory>

#include <ecu/quil/environment_daemon.h>
#include <ecu/tamu/com/transport_client.h>

namespace ecu::quil {

/// What the signal handler stops. Both pointers are empty until `main` fills them.
struct ProcessHolder {
  std::shared_ptr<tamu::com::ITransportClient> client;
  std::shared_ptr<EnvironmentDaemon> daemon;
};

/// The process's holder: created on first use and never destroyed, so that a signal always finds it.
[[nodiscard]] ProcessHolder& process();

/// Makes SIGINT and SIGTERM stop the daemon and the client once; the next one ends the process by default
/// action. Blocks both signals in the calling thread, and so in every thread that it starts afterwards: only
/// the wait inside the client's `run` lets them in, where they interrupt nothing that holds a lock. Call
/// before any thread is started.
void install_signal_handler();

}  // namespace ecu::quil
