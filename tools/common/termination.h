#pragma once

namespace ecu::tools {

/// Makes the first SIGINT or SIGTERM call `stop` in a signal handler, and a second one of either kind end the
/// process. Call it once, before starting any thread: it blocks both signals in every thread of the process.
/// They take effect in the main thread, while and after it waits in a client's `run`.
void stop_on_termination(void (*stop)());

}  // namespace ecu::tools
