#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "posix/unique_fd.h"

/// The system calls on the file of a queueing port. Only the waits block.
namespace ecu::tamu::ipc {

using Deadline = std::optional<std::chrono::steady_clock::time_point>;

/// A FIFO, character device or regular file opened for reading; empty when that fails. A FIFO's writing end
/// is opened too, into `fifo_keeper`, so that the FIFO never reports its end.
[[nodiscard]] posix::UniqueFd open_for_reading(const std::string& path, posix::UniqueFd& fifo_keeper);

/// Whether `path` names the file that is open as `fd`. A path that cannot be examined counts as unchanged.
[[nodiscard]] bool names_file(const std::string& path, int fd) noexcept;

[[nodiscard]] bool is_regular_file(int fd) noexcept;

/// A FIFO, character device or regular file opened for appending; empty when that fails.
[[nodiscard]] posix::UniqueFd open_for_writing(const std::string& path);

/// The number of bytes that can be read at once; nothing when the port does not report it.
[[nodiscard]] std::optional<std::size_t> bytes_waiting(int fd) noexcept;

/// Like read and write, but not interrupted by signals.
[[nodiscard]] std::ptrdiff_t read_some(int fd, std::span<char> room) noexcept;
[[nodiscard]] std::ptrdiff_t write_some(int fd, std::span<const char> bytes) noexcept;

inline constexpr int no_descriptor = -1;

/// The descriptors that a receiver waits for; `no_descriptor` is ignored.
struct Inputs {
  int port = no_descriptor;
  int stop = no_descriptor;
  int path = no_descriptor;     // readable when the path may name another file
  int wake_up = no_descriptor;  // readable when the watchdog requests a sign of life
};

/// The inputs that ended a wait; all false when the deadline has passed.
struct Ready {
  bool port = false;
  bool port_readable = false;  // false when the port has failed without data
  bool stop = false;
  bool path = false;
  bool wake_up = false;
};

/// Waits until one of the inputs is readable or has failed; without a deadline there is no time limit.
[[nodiscard]] Ready wait_for_input(const Inputs& inputs, Deadline deadline) noexcept;

/// Waits until `fd` is writable or has failed; false when the deadline has passed.
[[nodiscard]] bool wait_for_room(int fd, std::chrono::steady_clock::time_point deadline) noexcept;

/// Locks the port against all other writers, in this process and in others, until `unlock_port`. False, with
/// the reason in errno, when that fails: EWOULDBLOCK when another writer holds the lock.
[[nodiscard]] bool try_lock_port(int fd) noexcept;
void unlock_port(int fd) noexcept;

}  // namespace ecu::tamu::ipc
