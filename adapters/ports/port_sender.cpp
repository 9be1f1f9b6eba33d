#include "ports/port_sender.h"

#include <pthread.h>
#include <signal.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <thread>

#include <ecu/tamu/logging/logging.h>

#include "ports/port_file.h"
#include "ports/record_format.h"

namespace ecu::tamu::ipc::detail {

namespace {

constexpr auto logger = logging::module("tamu.ipc.queueport");

// How long a record may wait for other writers and for room.
constexpr std::chrono::seconds send_time_limit(1);

// flock has no time-out, so the lock is retried at intervals.
constexpr std::chrono::milliseconds lock_poll_interval(1);

/// Makes a write to a FIFO without a reader fail with EPIPE in the calling thread, without SIGPIPE.
class BrokenPipeGuard {
 public:
  BrokenPipeGuard() noexcept {
    sigemptyset(&broken_pipe_);
    sigaddset(&broken_pipe_, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &broken_pipe_, &mask_before_);
  }
  ~BrokenPipeGuard() { ::pthread_sigmask(SIG_SETMASK, &mask_before_, nullptr); }
  BrokenPipeGuard(const BrokenPipeGuard&) = delete;
  BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;

  /// Consumes the signal that a write raised. In a thread that blocks SIGPIPE itself the signal stays
  /// pending, because it may be an older one.
  void discard_signal() const noexcept {
    if (sigismember(&mask_before_, SIGPIPE) == 0) {
      const timespec at_once{};
      while (::sigtimedwait(&broken_pipe_, nullptr, &at_once) < 0 && errno == EINTR) {
      }
    }
  }

 private:
  sigset_t broken_pipe_{};
  sigset_t mask_before_{};
};

constexpr const char* port_in_use = "another writer holds the port";

// Returns the reason why the port cannot be locked, or null on success.
const char* lock_until(int fd, std::chrono::steady_clock::time_point deadline) {
  while (!try_lock_port(fd)) {
    if (errno != EWOULDBLOCK) {
      return std::strerror(errno);
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      return port_in_use;
    }
    std::this_thread::sleep_for(lock_poll_interval);
  }
  return nullptr;
}

}  // namespace

bool PortSender::open(const std::string& path) {
  close();
  path_ = path;
  port_ = open_for_writing(path);
  queue_ = WriterQueue::of(path);
  return static_cast<bool>(port_);
}

void PortSender::close() noexcept {
  if (port_ && has_begun_frame_) {
    end_frame();
  }
  has_begun_frame_ = false;
  is_stuck_ = false;
  port_.reset();
}

// After a record that has timed out, the mark does not wait again. Called by the destructor, which must not
// throw.
void PortSender::end_frame() noexcept {
  try {
    (void)send(end_of_frame(), is_stuck_ ? Clock::now() : Clock::now() + send_time_limit);
  } catch (const std::exception& failure) {
    logger.warning(path_, ": the end of a frame cannot be written: ", failure.what());
  }
}

bool PortSender::transmit(const IpcSignal& signal) {
  if (signal.data.size() > Record::max_payload_size) {
    logger.warning(path_, ": a record of ", signal.data.size(), " bytes is too large");
    return false;
  }
  encode_record(signal, record_);
  const bool sent = send(record_, Clock::now() + send_time_limit);
  is_stuck_ = !sent;
  has_begun_frame_ = has_begun_frame_ || sent;
  return sent;
}

bool PortSender::send(std::span<const char> record, Clock::time_point deadline) {
  const char* const failure = port_ ? write_alone(record, deadline) : "the port is not open";
  if (failure != nullptr) {
    logger.warning(path_, ": a record cannot be written: ", failure);
  }
  return failure == nullptr;
}

// This function and the next one return the reason for a failure, or null.
const char* PortSender::write_alone(std::span<const char> record, Clock::time_point deadline) const {
  const WriterQueue::Place place(*queue_);
  if (!place.wait_until(deadline)) {
    return port_in_use;
  }
  if (const char* const failure = lock_until(port_.get(), deadline)) {
    return failure;
  }
  const char* const failure = write_whole(record, deadline);
  unlock_port(port_.get());
  return failure;
}

const char* PortSender::write_whole(std::span<const char> record, Clock::time_point deadline) const {
  const BrokenPipeGuard guard;
  while (!record.empty()) {
    const std::ptrdiff_t count = write_some(port_.get(), record);
    if (count > 0) {
      record = record.subspan(static_cast<std::size_t>(count));
    } else if (count < 0 && errno != EAGAIN) {
      const int error = errno;
      guard.discard_signal();
      return std::strerror(error);
    } else if (!wait_for_room(port_.get(), deadline) || Clock::now() >= deadline) {
      return "the port stays full";
    }
  }
  return nullptr;
}

}  // namespace ecu::tamu::ipc::detail
