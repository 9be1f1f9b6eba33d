#pragma once

namespace ecu::tamu {

/// Tells the service manager that the process is starting (sd_notify protocol, `STATUS=`). Does nothing when
/// no manager listens (NOTIFY_SOCKET unset).
void application_starting() noexcept;

/// Tells the service manager that the process is fully up (sd_notify protocol, `READY=1`). Does nothing when
/// no manager listens.
void application_ready() noexcept;

}  // namespace ecu::tamu
