#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <ecu/tamu/ipc/data_consumer.h>
#include <ecu/tamu/ipc/ipc_signal.h>

#include "ports/path_watch.h"
#include "ports/port_file.h"
#include "ports/record_parser.h"
#include "posix/event.h"
#include "posix/unique_fd.h"
#include "system/heartbeat.h"

namespace ecu::tamu::ipc::detail {

/// How long to wait between attempts to open a port that is away: from `shortest`, doubling, to `longest`.
struct ReopenPauses {
  std::chrono::milliseconds shortest{1000};
  std::chrono::milliseconds longest{5000};
};

/// Implements `QueuePortReader` on a file descriptor. `request_stop` may be called from any thread,
/// everything else by one thread at a time.
class PortReceiver {
 public:
  /// Throws std::system_error when the system has no descriptor left.
  explicit PortReceiver(std::unique_ptr<IDataConsumer<IpcSignal>> consumer, ReopenPauses pauses = {})
      : consumer_(std::move(consumer)), pauses_(pauses) {}

  /// Opens the port at `path`, which it then watches for a replacement, and drops what was left of an earlier
  /// one. Never waits for a writer. False when there is no such port or it cannot be opened for reading.
  /// Throws std::bad_alloc.
  [[nodiscard]] bool open(const std::string& path);

  /// Receives until a stop is requested or the port goes away. Does not throw.
  void receive() noexcept;

  /// Receives until a stop is requested, and reopens a port that goes away. Does not throw. The watchdog
  /// supervises it.
  void receive_and_reopen() noexcept;

  void request_stop() const noexcept { stop_.signal(); }

 private:
  using TimePoint = RecordParser::TimePoint;
  enum class State { closed, open, away };

  [[nodiscard]] bool serve() noexcept;
  void serve_port(bool readable) noexcept;
  void leave_replaced_port() noexcept;
  void drain() noexcept;
  void read_waiting() noexcept;
  void wait_for_rest(TimePoint deadline) noexcept;
  [[nodiscard]] bool read_once() noexcept;
  void take(std::size_t count) noexcept;
  void deliver(TimePoint now) noexcept;
  void release_memory() noexcept;
  void report_damage() noexcept;
  void finish() noexcept;

  [[nodiscard]] bool open_port() noexcept;
  void go_away(std::string_view reason, std::chrono::milliseconds pause) noexcept;
  void release_port() noexcept;
  [[nodiscard]] bool may_have_changed(const Ready& ready) noexcept;
  [[nodiscard]] bool is_replaced() noexcept;
  void renew_watch() noexcept;
  [[nodiscard]] bool wait_until_back() noexcept;
  [[nodiscard]] bool reopen() noexcept;
  void beat(const Ready& ready) noexcept;
  template <class Call>
  void guarded(const char* what, Call call) const noexcept;

  // Constant after construction.
  const std::unique_ptr<IDataConsumer<IpcSignal>> consumer_;
  const ReopenPauses pauses_;

  // With their own synchronisation.
  const posix::Event stop_;     // the stop request
  const posix::Event wake_up_;  // the watchdog requests a sign of life

  // Used by the thread that opens and receives.
  std::string path_;
  PathWatch watch_;
  bool watch_failure_is_known_ = false;
  Deadline next_renewal_;  // of a watch that the system lacked the means for
  State state_ = State::closed;
  posix::UniqueFd fifo_keeper_;
  posix::UniqueFd port_;  // held while a regular file is away
  RecordParser parser_;
  std::uint64_t received_ = 0;  // bytes since construction
  std::uint64_t released_ = 0;  // of those, when memory was released last
  TimePoint next_attempt_;      // to open a port that is away
  std::optional<Heartbeat> heartbeat_;
};

}  // namespace ecu::tamu::ipc::detail
