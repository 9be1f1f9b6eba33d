#pragma once

#include "posix/event.h"

namespace ecu::tamu {

/// Blocks until `event` is signalled. SIGINT and SIGTERM are let in meanwhile, whatever the thread's mask.
/// When the service manager watches the process, this sends `WATCHDOG=1` once a `watchdog_period`, provided
/// that every `Heartbeat` has gone round since the last time; a loop that has not is one ERROR line. Main
/// thread.
void wait_supervised(const posix::Event& event);

}  // namespace ecu::tamu
