#pragma once

#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <system_error>

#include "posix/timespec.h"
#include "posix/unique_fd.h"

namespace ecu::tamu::posix {

/// Takes ownership of the descriptor that a system call returned; throws std::system_error with the name of
/// the call when it failed.
inline UniqueFd checked_fd(int fd, const char* call) {
  if (fd < 0) {
    throw std::system_error(errno, std::generic_category(), call);
  }
  return UniqueFd(fd);
}

/// Something to wait for in `poll`: readable from `signal` until `clear`.
class Event {
 public:
  Event() : fd_(checked_fd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")) {}

  [[nodiscard]] int fd() const noexcept { return fd_.get(); }

  /// Async-signal-safe.
  void signal() const noexcept {
    const int saved_errno = errno;
    (void)!::eventfd_write(fd_.get(), 1);
    errno = saved_errno;
  }

  void clear() const noexcept {
    eventfd_t count = 0;
    (void)!::eventfd_read(fd_.get(), &count);
  }

 private:
  UniqueFd fd_;
};

/// A one-shot timer to wait for in `poll`: readable from its expiry until it is set or cancelled.
class Timer {
 public:
  Timer()
      : fd_(checked_fd(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd_create")) {}

  [[nodiscard]] int fd() const noexcept { return fd_.get(); }

  /// Expires `delay` from now; 0 cancels.
  void set(std::chrono::nanoseconds delay) const noexcept {
    itimerspec spec{};
    spec.it_value = to_timespec(delay);
    ::timerfd_settime(fd_.get(), 0, &spec, nullptr);
  }
  void cancel() const noexcept { set(std::chrono::nanoseconds::zero()); }

 private:
  UniqueFd fd_;
};

}  // namespace ecu::tamu::posix
