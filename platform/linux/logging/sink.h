#pragma once

#include <sys/un.h>

#include <cstdint>
#include <initializer_list>
#include <string_view>

#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/thread_safety.h>

#include "logging/line_builder.h"
#include "posix/unique_fd.h"

namespace ecu::tamu::logging {

/// Where lines go. Writing never waits for the reader: a line that the target does not accept at once is lost
/// and counted. Before the next accepted line, a WARNING reports the number of lost lines regardless of the
/// log level. Thread-safe.
class Sink {
 public:
  virtual ~Sink() = default;
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;

  /// Composes a line from the fields and hands it over. Uses no heap; changes errno.
  void write(Level level, std::string_view module, std::initializer_list<Field> fields) noexcept
      TAMU_EXCLUDES(mutex_);

  /// Examines its target again with the next line.
  void reset() noexcept TAMU_EXCLUDES(mutex_);

 protected:
  explicit Sink(std::string_view line_end) : line_end_(line_end) {}

  /// Appends the prefix of a line.
  virtual void begin_line(LineBuilder& line, Level level) const noexcept = 0;

  /// Hands over a whole line without waiting. False when it is lost.
  virtual bool take(std::string_view line) noexcept TAMU_REQUIRES(mutex_) = 0;

  virtual void forget_target() noexcept TAMU_REQUIRES(mutex_) = 0;

  Mutex mutex_;  // never held while waiting

 private:
  bool report_loss() noexcept TAMU_REQUIRES(mutex_);

  const std::string_view line_end_;
  std::uint64_t lost_ TAMU_GUARDED_BY(mutex_) = 0;
};

/// An open descriptor, such as standard output: lines like `2026-11-21T10:00:00.123Z NOTICE text`. The
/// descriptor's flags stay as they are.
class StreamSink final : public Sink {
 public:
  /// The descriptor must stay open.
  explicit StreamSink(int fd) : Sink("\n"), fd_(fd) {}

 private:
  void begin_line(LineBuilder& line, Level level) const noexcept override;
  bool take(std::string_view line) noexcept override TAMU_REQUIRES(mutex_);
  void forget_target() noexcept override TAMU_REQUIRES(mutex_);

  void examine_target() noexcept TAMU_REQUIRES(mutex_);
  [[nodiscard]] ssize_t try_write(std::string_view text) const noexcept TAMU_REQUIRES(mutex_);

  const int fd_;
  bool is_examined_ TAMU_GUARDED_BY(mutex_) = false;
  bool is_socket_ TAMU_GUARDED_BY(mutex_) = false;
  posix::UniqueFd non_blocking_
      TAMU_GUARDED_BY(mutex_);                         // the same pipe or terminal; empty for anything else
  bool is_line_open_ TAMU_GUARDED_BY(mutex_) = false;  // the last write was a part of a line
};

/// The system log, with lines as syslog(3) writes them: identity tolquil with the process identifier,
/// facility daemon. Each line goes to the log daemon that has the path then.
class SyslogSink final : public Sink {
 public:
  /// `path`, of at most 107 bytes, names the log daemon's datagram socket.
  explicit SyslogSink(std::string_view path = "/dev/log") noexcept;

 private:
  void begin_line(LineBuilder& line, Level level) const noexcept override;
  bool take(std::string_view line) noexcept override TAMU_REQUIRES(mutex_);
  void forget_target() noexcept override TAMU_REQUIRES(mutex_);

  sockaddr_un address_{};
  posix::UniqueFd socket_ TAMU_GUARDED_BY(mutex_);
};

}  // namespace ecu::tamu::logging
