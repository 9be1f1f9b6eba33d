#pragma once

#include "posix/event.h"

namespace ecu::tamu {

/// Blocks until `event` is signalled. SIGINT and SIGTERM are unblocked during the wait, regardless of the
/// thread's mask. If the service manager watches the process, this sends `WATCHDOG=1` once a
/// `watchdog_period`, provided that every supervised loop has completed a cycle since the last time; the
/// others are reported in one ERROR line. Call only from the main thread.
void wait_supervised(const posix::Event& event);

/// Unblocks SIGINT and SIGTERM in the calling thread if both have their default action. After their handler
/// has reset itself, a further signal then ends the process, even in the middle of a stop.
void unblock_default_termination();

}  // namespace ecu::tamu
