#include "ports/port_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "posix/timespec.h"

namespace ecu::tamu::ipc {

namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

constexpr int common_flags = O_NONBLOCK | O_CLOEXEC | O_NOCTTY;

template <class Call>
auto uninterrupted(Call call) noexcept {
  auto result = call();
  while (result < 0 && errno == EINTR) {
    result = call();
  }
  return result;
}

posix::UniqueFd open_file(const std::string& path, int flags) {
  return posix::UniqueFd(uninterrupted([&] { return ::open(path.c_str(), flags | common_flags); }));
}

mode_t type_of(int fd) noexcept {
  struct stat status {};
  return ::fstat(fd, &status) == 0 ? status.st_mode & S_IFMT : 0;
}

bool can_be_port(mode_t type) noexcept {
  return type == S_IFIFO || type == S_IFCHR || type == S_IFREG;
}

// After an interruption it waits for the rest of the time.
bool poll_until(std::span<pollfd> fds, Deadline deadline) noexcept {
  const int ready = uninterrupted([&] {
    if (!deadline) {
      return ::ppoll(fds.data(), fds.size(), nullptr, nullptr);
    }
    const timespec left =
        posix::to_timespec(std::max(nanoseconds(*deadline - steady_clock::now()), nanoseconds::zero()));
    return ::ppoll(fds.data(), fds.size(), &left, nullptr);
  });
  return ready > 0;
}

}  // namespace

posix::UniqueFd open_for_reading(const std::string& path, posix::UniqueFd& fifo_keeper) {
  fifo_keeper.reset();
  posix::UniqueFd port = open_file(path, O_RDONLY);
  const mode_t type = type_of(port.get());
  if (type == S_IFIFO) {
    fifo_keeper = open_file(path, O_WRONLY);
  }
  return can_be_port(type) && (type != S_IFIFO || fifo_keeper) ? std::move(port) : posix::UniqueFd();
}

posix::UniqueFd open_for_writing(const std::string& path) {
  posix::UniqueFd port = open_file(path, O_WRONLY | O_APPEND);
  return can_be_port(type_of(port.get())) ? std::move(port) : posix::UniqueFd();
}

bool names_file(const std::string& path, int fd) noexcept {
  struct stat named {
  }, open{};
  if (::stat(path.c_str(), &named) != 0) {
    return errno != ENOENT && errno != ENOTDIR;
  }
  return ::fstat(fd, &open) == 0 && named.st_dev == open.st_dev && named.st_ino == open.st_ino;
}

bool is_regular_file(int fd) noexcept {
  return type_of(fd) == S_IFREG;
}

std::optional<std::size_t> bytes_waiting(int fd) noexcept {
  int count = 0;
  return ::ioctl(fd, FIONREAD, &count) == 0 && count >= 0 ? std::optional(static_cast<std::size_t>(count))
                                                          : std::nullopt;
}

std::ptrdiff_t read_some(int fd, std::span<char> room) noexcept {
  return uninterrupted([&] { return ::read(fd, room.data(), room.size()); });
}

std::ptrdiff_t write_some(int fd, std::span<const char> bytes) noexcept {
  return uninterrupted([&] { return ::write(fd, bytes.data(), bytes.size()); });
}

Ready wait_for_input(const Inputs& inputs, Deadline deadline) noexcept {
  std::array fds = {pollfd{inputs.port, POLLIN, 0}, pollfd{inputs.stop, POLLIN, 0},
                    pollfd{inputs.path, POLLIN, 0}, pollfd{inputs.wake_up, POLLIN, 0}};
  if (!poll_until(fds, deadline)) {
    return {};
  }
  return {.port = fds[0].revents != 0,
          .port_readable = (fds[0].revents & POLLIN) != 0,
          .stop = fds[1].revents != 0,
          .path = fds[2].revents != 0,
          .wake_up = fds[3].revents != 0};
}

bool wait_for_room(int fd, steady_clock::time_point deadline) noexcept {
  std::array<pollfd, 1> fds = {pollfd{fd, POLLOUT, 0}};
  return poll_until(fds, deadline);
}

bool try_lock_port(int fd) noexcept {
  return uninterrupted([fd] { return ::flock(fd, LOCK_EX | LOCK_NB); }) == 0;
}

void unlock_port(int fd) noexcept {
  ::flock(fd, LOCK_UN);
}

}  // namespace ecu::tamu::ipc
