#include "ecusim/fifo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <span>
#include <system_error>
#include <utility>

#include "ecusim/interruptible_sleep.h"

namespace ecu::sim {

namespace {

constexpr std::chrono::milliseconds reader_retry_interval{100};
constexpr std::chrono::milliseconds room_retry_interval{5};
constexpr mode_t owner_only = 0600;
constexpr uid_t same_owner = static_cast<uid_t>(-1);

bool sleep_for(const std::stop_token& stop, std::chrono::milliseconds time) {
  return sleep_until(stop, std::chrono::steady_clock::now() + time);
}

// The writing end; opening it fails while there is no reader.
class WritingEnd {
 public:
  explicit WritingEnd(const std::string& path)
      : fd_(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) {}
  ~WritingEnd() {
    if (fd_ >= 0) {
      ::close(fd_);
    }
  }
  WritingEnd(const WritingEnd&) = delete;
  WritingEnd& operator=(const WritingEnd&) = delete;

  // True when everything is written; false without a reader, or when `stop` is requested.
  bool write(std::span<const std::uint8_t> bytes, const std::stop_token& stop) const {
    while (!bytes.empty()) {
      const ssize_t written = ::write(fd_, bytes.data(), bytes.size());
      if (written >= 0) {
        bytes = bytes.subspan(static_cast<std::size_t>(written));
      } else if ((errno != EAGAIN && errno != EINTR) || !sleep_for(stop, room_retry_interval)) {
        return false;
      }
    }
    return true;
  }

 private:
  int fd_;
};

}  // namespace

Fifo::Fifo(std::string path, const FifoAccess& access) : path_(std::move(path)) {
  if (::mkfifo(path_.c_str(), owner_only) != 0) {
    throw std::system_error(errno, std::generic_category(), path_ + " cannot be made");
  }
  const bool has_group = !access.group || ::chown(path_.c_str(), same_owner, *access.group) == 0;
  if (!has_group || ::chmod(path_.c_str(), access.mode) != 0) {
    const int reason = errno;
    ::unlink(path_.c_str());
    throw std::system_error(reason, std::generic_category(), path_ + " cannot be given its group and mode");
  }
}

Fifo::~Fifo() {
  ::unlink(path_.c_str());
}

bool Fifo::write(const tamu::com::Payload& bytes, const std::stop_token& stop) const {
  while (!WritingEnd(path_).write(bytes, stop)) {
    if (!sleep_for(stop, reader_retry_interval)) {
      return false;
    }
  }
  return true;
}

}  // namespace ecu::sim
