#pragma once

#include <chrono>
#include <optional>
#include <string_view>

/// The platform's own notifications to the service manager (sd_notify protocol), in addition to
/// ecu/tamu/application.h. Every function may be called from any thread, never blocks, and does nothing when
/// no manager listens; notifications that cannot be delivered are one WARNING line for each cause.
namespace ecu::tamu {

/// Sets one part of the status text that the service manager shows, for instance the state of the broker
/// connection; an empty text removes it. The parts are joined with "; " in the order of their names, and sent
/// when the result changes (`STATUS=`); a text for which the manager's socket has no room is sent at the next
/// change or when the watchdog is notified. Control characters are sent as spaces. A text is not sent when
/// there is no memory for it.
void set_status(std::string_view part, std::string_view text) noexcept;

/// Delivers `READY=1` and the status text if the manager's socket was full when they were due. False while it
/// is still full, so that a later call may succeed.
[[nodiscard]] bool notify_again() noexcept;

/// Reports that the process has begun to stop (`STOPPING=1`).
void notify_stopping() noexcept;

/// Reports that the process is alive (`WATCHDOG=1`); due once every `watchdog_period`. False if the manager's
/// socket is full, so that a later call may succeed.
bool notify_watchdog() noexcept;

/// Half of the time after which the manager considers the process dead (WATCHDOG_USEC). Returns std::nullopt
/// if the manager does not watch, or watches another process (WATCHDOG_PID).
[[nodiscard]] std::optional<std::chrono::microseconds> watchdog_period() noexcept;

}  // namespace ecu::tamu
