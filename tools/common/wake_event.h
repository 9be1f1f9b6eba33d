#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace ecu::tools {

/// A flag that `poll` can wait for. Any thread may use it. The platform's own event is out of reach:
/// libraries of tools see the seam only, and the seam has no descriptors.
class WakeEvent {
 public:
  /// Throws std::system_error when the process has no descriptors left.
  WakeEvent() : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (fd_ < 0) {
      throw std::system_error(errno, std::generic_category(), "eventfd");
    }
  }
  ~WakeEvent() { ::close(fd_); }
  WakeEvent(const WakeEvent&) = delete;
  WakeEvent& operator=(const WakeEvent&) = delete;

  void set() const noexcept {
    const std::uint64_t one = 1;
    (void)!::write(fd_, &one, sizeof(one));
  }
  void clear() const noexcept {
    std::uint64_t count = 0;
    (void)!::read(fd_, &count, sizeof(count));
  }

  /// Readable while the flag is set.
  [[nodiscard]] int fd() const noexcept { return fd_; }

 private:
  const int fd_;
};

}  // namespace ecu::tools
