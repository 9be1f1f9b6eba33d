#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "posix/unique_fd.h"

/// The system calls on the file that a queueing port is. Nothing here blocks but the waits.
namespace ecu::tamu::ipc {

using Deadline = std::optional<std::chrono::steady_clock::time_point>;

/// A FIFO, character device or regular file opened for reading; empty when that fails. A FIFO's writing end
/// is opened too, into `fifo_keeper`, which keeps the FIFO from ever being at its end.
[[nodiscard]] posix::UniqueFd open_for_reading(const std::string& path, posix::UniqueFd& fifo_keeper);

/// A FIFO, character device or regular file opened for appending; empty when that fails.
[[nodiscard]] posix::UniqueFd open_for_writing(const std::string& path);

/// Bytes that can be read at once, or nothing when the port cannot say.
[[nodiscard]] std::optional<std::size_t> bytes_waiting(int fd) noexcept;

/// As read and write, but never interrupted by a signal.
[[nodiscard]] std::ptrdiff_t read_some(int fd, std::span<char> room) noexcept;
[[nodiscard]] std::ptrdiff_t write_some(int fd, std::span<const char> bytes) noexcept;

/// What a wait came back with; neither when the deadline has passed.
struct Ready {
  bool first = false;
  bool first_readable = false;  // not so when it has only failed
  bool second = false;
};

/// Waits, without a time limit when there is no deadline, until one of two descriptors can be read from (or
/// has failed).
[[nodiscard]] Ready wait_for_input(int first, int second, Deadline deadline) noexcept;

/// Waits until `fd` can be written to (or has failed); false when the deadline has passed.
[[nodiscard]] bool wait_for_room(int fd, std::chrono::steady_clock::time_point deadline) noexcept;

/// Keeps other writers of the port out, in this process and in others, until `unlock_port`. False, with the
/// reason in errno, when that fails: EWOULDBLOCK when one of them holds it now.
[[nodiscard]] bool try_lock_port(int fd) noexcept;
void unlock_port(int fd) noexcept;

}  // namespace ecu::tamu::ipc
