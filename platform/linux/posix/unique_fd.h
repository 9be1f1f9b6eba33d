#pragma once

#include <unistd.h>

#include <utility>

namespace ecu::tamu::posix {

/// Owns a file descriptor and closes it.
class UniqueFd {
 public:
  UniqueFd() noexcept = default;
  explicit UniqueFd(int fd) noexcept : fd_(fd) {}
  ~UniqueFd() { reset(); }

  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, none)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    reset(std::exchange(other.fd_, none));
    return *this;
  }

  [[nodiscard]] int get() const noexcept { return fd_; }
  explicit operator bool() const noexcept { return fd_ != none; }

  void reset(int fd = none) noexcept {
    if (fd_ != none) {
      ::close(fd_);
    }
    fd_ = fd;
  }

 private:
  static constexpr int none = -1;
  int fd_ = none;
};

}  // namespace ecu::tamu::posix
