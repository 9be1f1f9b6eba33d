#pragma once

#include <csignal>
#include <span>

/// The calling thread's signal mask. A new thread inherits the mask of the one that starts it.
namespace ecu::tamu {

[[nodiscard]] sigset_t signal_set(std::span<const int> signal_numbers) noexcept;

/// SIGINT and SIGTERM, which request an orderly end of the process.
[[nodiscard]] sigset_t termination_signals() noexcept;

void block_signals(const sigset_t& signals) noexcept;
void unblock_signals(const sigset_t& signals) noexcept;

/// Blocks SIGPIPE, SIGXFSZ and SIGTTOU. The loss of the log's reader, or a log that reaches the limit of a
/// file's size, then causes a failed write and does not end the process, and a terminal that stops background
/// processes that write to it does not stop this one. Call before anything is written.
void block_failed_write_signals() noexcept;

/// The current mask without `signals`, to pass to a wait such as `ppoll` so that they can interrupt it.
[[nodiscard]] sigset_t mask_without(const sigset_t& signals) noexcept;

}  // namespace ecu::tamu
