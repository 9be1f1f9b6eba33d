#pragma once

#include <chrono>
#include <optional>
#include <string_view>

/// What the platform itself tells the service manager (sd_notify protocol), beside ecu/tamu/application.h.
/// Every function may be called from any thread, never blocks, and does nothing when no manager listens; a
/// notification that cannot be delivered is one WARNING line.
namespace ecu::tamu {

/// Sets one part of the status text that the service manager shows, for instance how the process stands with
/// the broker; an empty text removes it. The parts are joined with "; " in the order of their names,
/// and sent when the result changes (`STATUS=`). Control characters are sent as blanks. A text that no
/// memory is left for is not sent.
void set_status(std::string_view part, std::string_view text) noexcept;

/// Tells that the process has begun to stop (`STOPPING=1`).
void notify_stopping() noexcept;

/// Tells that the process is alive (`WATCHDOG=1`); due once every `watchdog_period`.
void notify_watchdog() noexcept;

/// Half of the time after which the manager takes the process for dead (WATCHDOG_USEC). Nothing when it does
/// not watch, or watches another process (WATCHDOG_PID).
[[nodiscard]] std::optional<std::chrono::microseconds> watchdog_period() noexcept;

}  // namespace ecu::tamu
