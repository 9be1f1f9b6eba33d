// A line is composed on the writer's stack and handed over with one system call that cannot wait. There is
// no queue and no thread in between, so the last line before an abort gets out, too.
//
// Pipes and terminals: O_NONBLOCK on standard output would apply to every process that shares it. The sink
// opens the same pipe or terminal once more through /proc and sets the flag there. A pipe takes up to
// PIPE_BUF bytes as a whole or not at all, and no line is longer.
//
// If that is refused (the target belongs to another user), the sink calls poll first. A pipe with room then
// takes PIPE_BUF bytes at once, unless another process fills it between the two calls; a terminal may wait.
//
// Sockets have a flag for each call. Regular files are always ready; they wait for the disk only. syslog(3)
// waits for a slow log daemon, so the system log gets a socket of the sink's own.
//
// A terminal or a stream socket may take a part of a line. The line then counts as lost, and the next one
// begins with a newline.

#include "logging/sink.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>

namespace ecu::tamu::logging {

namespace {

constexpr std::string_view syslog_identity = "tolquil";
constexpr std::string_view own_module = "tamu.logging";

static_assert(LineBuilder::max_size <= PIPE_BUF, "a pipe must take a line as a whole");
static_assert(sizeof(timespec::tv_sec) == sizeof(std::int64_t), "time must go on beyond 2038");

// Not std::chrono::system_clock: on 32 bits its library reads the clock that ends in 2038.
Timestamp now() noexcept {
  constexpr int ns_per_ms = 1'000'000;
  timespec time{};
  ::clock_gettime(CLOCK_REALTIME, &time);
  return {time.tv_sec, static_cast<int>(time.tv_nsec / ns_per_ms)};
}

void append_text(LineBuilder& line, std::string_view module, std::initializer_list<Field> fields) noexcept {
  if (!module.empty()) {
    line.append_literal("[");
    line.append_escaped(module);
    line.append_literal("] ");
  }
  for (const Field& field : fields) {
    line.append(field);
  }
}

// The pipe or terminal of `fd`, opened again for this sink; empty when that is not allowed.
posix::UniqueFd open_non_blocking(int fd) noexcept {
  std::array<char, 32> path{"/proc/self/fd/"};
  std::to_chars(path.begin() + std::string_view(path.data()).size(), path.end() - 1, fd);
  return posix::UniqueFd(::open(path.data(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

bool is_ready(int fd) noexcept {
  pollfd target{fd, POLLOUT, 0};
  return ::poll(&target, 1, 0) == 1 && target.revents == POLLOUT;
}

}  // namespace

void Sink::write(Level level, std::string_view module, std::initializer_list<Field> fields) noexcept {
  LineBuilder line;
  begin_line(line, level);
  append_text(line, module, fields);
  const std::string_view text = line.finish(line_end_);
  const MutexLock lock(mutex_);
  if (!report_loss() || !take(text)) {
    ++lost_;
  }
}

void Sink::reset() noexcept {
  const MutexLock lock(mutex_);
  forget_target();
}

bool Sink::report_loss() noexcept {
  if (lost_ == 0) {
    return true;
  }
  LineBuilder line;
  begin_line(line, Level::warning);
  append_text(line, own_module,
              {lost_, lost_ == 1 ? " line" : " lines", " lost: the log could not take them"});
  if (!take(line.finish(line_end_))) {
    return false;
  }
  lost_ = 0;
  return true;
}

void StreamSink::begin_line(LineBuilder& line, Level level) const noexcept {
  line.append_time(now());
  line.append_literal(" ");
  line.append_literal(name_of(level));
  line.append_literal(" ");
}

bool StreamSink::take(std::string_view line) noexcept {
  if (!is_examined_) {
    examine_target();
  }
  if (is_line_open_ && try_write("\n") != 1) {
    return false;
  }
  const ssize_t written = try_write(line);
  is_line_open_ = written > 0 && written < static_cast<ssize_t>(line.size());
  return written == static_cast<ssize_t>(line.size());
}

void StreamSink::forget_target() noexcept {
  is_examined_ = false;
  is_line_open_ = false;
  non_blocking_.reset();
}

void StreamSink::examine_target() noexcept {
  struct stat status {};
  ::fstat(fd_, &status);
  is_socket_ = S_ISSOCK(status.st_mode);
  // A reopened regular file would be written from its beginning.
  if (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode)) {
    non_blocking_ = open_non_blocking(fd_);
  }
  is_examined_ = true;
}

ssize_t StreamSink::try_write(std::string_view text) const noexcept {
  if (is_socket_) {
    return ::send(fd_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  }
  if (non_blocking_) {
    return ::write(non_blocking_.get(), text.data(), text.size());
  }
  return is_ready(fd_) ? ::write(fd_, text.data(), text.size()) : -1;
}

SyslogSink::SyslogSink(std::string_view path) noexcept : Sink("") {
  address_.sun_family = AF_UNIX;
  path.copy(address_.sun_path, sizeof address_.sun_path - 1);
}

void SyslogSink::begin_line(LineBuilder& line, Level level) const noexcept {
  line.append_literal("<");
  line.append(LOG_DAEMON | static_cast<int>(level));
  line.append_literal(">");
  line.append_local_time(now());
  line.append_literal(" ");
  line.append_literal(syslog_identity);
  line.append_literal("[");
  line.append(::getpid());
  line.append_literal("]: ");
}

// Each line goes to the path, not over a connection: a new log daemon may have taken the path over while the
// old socket is still open.
bool SyslogSink::take(std::string_view line) noexcept {
  if (!socket_) {
    socket_.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  }
  return ::sendto(socket_.get(), line.data(), line.size(), MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&address_), sizeof address_) >= 0;
}

void SyslogSink::forget_target() noexcept {
  socket_.reset();
}

}  // namespace ecu::tamu::logging
