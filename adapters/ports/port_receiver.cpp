// How reception works. One thread waits in `poll` for the port, a stop request, a change of the files that
// the port's path leads through and a wake-up request of the watchdog, without a time limit unless the parser
// holds bytes that have a deadline, or the system lacks the means to watch the path, which is then tried
// again. The bytes it reads pass through the parser to the consumer, on the same thread.
//
// A port is closed (never opened), open or away. It goes away when it reports its end or an error, or when
// its path no longer names the open file. What waits on that file is delivered first, and an incomplete
// record is abandoned, because its rest cannot arrive. The port is then reopened: at once when the watch
// shows that the path may name another file, else after a pause that grows with each attempt. A device can
// often be opened although its peer is absent, so a port is back only if a first read finds bytes, or none
// yet, but not the end of file. A regular file that is away is kept open, and read from the old offset after
// it has grown, because a reopened file would be read from its beginning.
//
// What it relies on: the parser and the log do not throw (the parser allocates in its constructor only). This
// side holds a FIFO's writing end, so the FIFO does not report its end whenever a writer closes it.
// Everything else that may throw is called through `guarded`, so that no failure ends the thread and leaves
// the port open without a reader.

#include "ports/port_receiver.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <exception>
#include <utility>

#include <ecu/tamu/logging/logging.h>

#include "system/free_memory.h"
#include "system/supervision.h"

namespace ecu::tamu::ipc::detail {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr auto logger = logging::module("tamu.ipc.queueport");
constexpr const char* status_part = "receive port";

// The most that is read from a port that does not report how much waits. Without this limit a far side that
// never pauses would prevent a stop.
constexpr std::size_t drain_limit = std::size_t{1024} * 1024;

void show_away() noexcept {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  std::array<char, sizeof("receive port away since 00:00")> text{};
  if (::localtime_r(&now, &local) != nullptr) {
    set_status(status_part, {text.data(), std::strftime(text.data(), text.size(),
                                                        "receive port away since %H:%M", &local)});
  }
}

// Whether the shortage may pass. There are few inotify instances for each user.
bool is_shortage(int error) noexcept {
  return error == EMFILE || error == ENFILE || error == ENOMEM || error == ENOSPC;
}

Deadline earlier(Deadline one, Deadline other) noexcept {
  if (!one || !other) {
    return one ? one : other;
  }
  return std::min(one, other);
}

bool has_failed(int port) noexcept {
  const Ready now = wait_for_input({.port = port}, steady_clock::now());
  return now.port && !now.port_readable;
}

}  // namespace

bool PortReceiver::open(const std::string& path) {
  path_ = path;
  watch_.set_path(path);
  parser_.clear();
  state_ = open_port() ? State::open : State::closed;
  set_status(status_part, state_ == State::open ? "" : "receive port closed");
  return state_ == State::open;
}

void PortReceiver::receive() noexcept {
  (void)serve();
  finish();
}

void PortReceiver::receive_and_reopen() noexcept {
  guarded("supervision", [this] { heartbeat_.emplace("reader of " + path_, [this] { wake_up_.signal(); }); });
  while (!serve() && state_ == State::away) {
    guarded("consumer", [this] { consumer_->finished(); });
    if (!wait_until_back()) {
      break;
    }
  }
  finish();
  heartbeat_.reset();
}

void PortReceiver::finish() noexcept {
  guarded("consumer", [this] { consumer_->finished(); });
  stop_.clear();
}

// True when a stop was requested, false when the port is not or no longer open.
bool PortReceiver::serve() noexcept {
  while (state_ == State::open) {
    const Ready ready = wait_for_input(
        {.port = port_.get(), .stop = stop_.fd(), .path = watch_.fd(), .wake_up = wake_up_.fd()},
        earlier(parser_.deadline(), next_renewal_));
    if (ready.stop) {
      drain();
      return true;
    }
    beat(ready);
    if (may_have_changed(ready) && is_replaced()) {
      leave_replaced_port();
    } else if (ready.port) {
      serve_port(ready.port_readable);
    } else {
      deliver(steady_clock::now());
    }
  }
  return false;
}

void PortReceiver::serve_port(bool readable) noexcept {
  if (!read_once() && !readable && state_ == State::open) {
    go_away("the far side has hung up", pauses_.shortest);
  }
}

void PortReceiver::leave_replaced_port() noexcept {
  read_waiting();
  if (state_ == State::open) {
    go_away("the path no longer names the open file", milliseconds::zero());
  }
}

// An incomplete record at the end is kept, because its rest may still arrive. One with whole records after
// its beginning is torn, or carries them as its payload: time shows which.
void PortReceiver::drain() noexcept {
  read_waiting();
  wait_for_rest(steady_clock::now() + record_time_limit);
  while (parser_.skip_torn()) {
    deliver(steady_clock::now());
  }
  report_damage();
}

void PortReceiver::read_waiting() noexcept {
  const std::uint64_t goal = received_ + bytes_waiting(port_.get()).value_or(drain_limit);
  while (received_ < goal && read_once()) {
  }
}

void PortReceiver::wait_for_rest(TimePoint deadline) noexcept {
  while (state_ == State::open && parser_.seems_torn() && steady_clock::now() < deadline) {
    if (!wait_for_input({.port = port_.get()}, deadline).port_readable || !read_once()) {
      break;
    }
  }
}

// False when nothing more can be read now.
bool PortReceiver::read_once() noexcept {
  const std::ptrdiff_t count = read_some(port_.get(), parser_.room());
  if (count > 0) {
    take(static_cast<std::size_t>(count));
  } else if (count == 0 || errno != EAGAIN) {
    go_away(count == 0 ? "end of file" : std::strerror(errno), pauses_.shortest);
  }
  return count > 0;
}

void PortReceiver::take(std::size_t count) noexcept {
  const TimePoint now = steady_clock::now();
  received_ += count;
  parser_.add(count, now);
  deliver(now);
}

void PortReceiver::deliver(TimePoint now) noexcept {
  using Event = RecordParser::Event;
  for (Event event = parser_.next(now); event != Event::none; event = parser_.next(now)) {
    switch (event) {
      case Event::record:
        guarded("consumer", [this] { consumer_->consume(parser_.record()); });
        break;
      case Event::end_of_frame:
        guarded("consumer", [this] { consumer_->frame_finished(); });
        release_memory();
        break;
      case Event::damage:
        report_damage();
        break;
      case Event::none:
        break;
    }
  }
}

void PortReceiver::release_memory() noexcept {
  const std::uint64_t bytes = received_ - released_;
  const bool is_handled = bytes <= large_amount || parser_.release_memory();
  if (is_handled) {
    released_ = received_;
  }
  release_free_memory(is_handled ? bytes : 0);
}

void PortReceiver::report_damage() noexcept {
  if (const std::size_t count = parser_.take_damage(); count > 0) {
    logger.error(path_, ": ", count, count == 1 ? " byte" : " bytes", " dropped: not a complete record");
  }
}

void PortReceiver::go_away(std::string_view reason, milliseconds pause) noexcept {
  deliver(TimePoint::max());
  report_damage();
  state_ = State::away;
  next_attempt_ = steady_clock::now() + pause;
  release_port();
  logger.warning(path_, ": receive port away: ", reason);
  show_away();
}

void PortReceiver::release_port() noexcept {
  fifo_keeper_.reset();
  if (!is_regular_file(port_.get())) {
    port_.reset();
  }
}

// False when a stop was requested first.
bool PortReceiver::wait_until_back() noexcept {
  milliseconds pause = pauses_.shortest;
  for (;;) {
    const Ready ready =
        wait_for_input({.stop = stop_.fd(), .path = watch_.fd(), .wake_up = wake_up_.fd()}, next_attempt_);
    if (ready.stop) {
      return false;
    }
    beat(ready);
    if (!may_have_changed(ready) && steady_clock::now() < next_attempt_) {
      continue;
    }
    if (reopen()) {
      return true;
    }
    next_attempt_ = steady_clock::now() + pause;
    pause = std::min(2 * pause, pauses_.longest);
  }
}

bool PortReceiver::reopen() noexcept {
  const bool is_held = port_ && names_file(path_, port_.get());
  if (!is_held && !open_port()) {
    return false;
  }
  const std::ptrdiff_t count = read_some(port_.get(), parser_.room());
  if (count == 0 || (count < 0 && (errno != EAGAIN || has_failed(port_.get())))) {
    release_port();
    return false;
  }
  state_ = State::open;
  logger.notice(path_, ": receive port is back");
  set_status(status_part, {});
  if (count > 0) {
    take(static_cast<std::size_t>(count));
  }
  return true;
}

// The watch must begin first, so that it misses no change after the opening.
bool PortReceiver::open_port() noexcept {
  renew_watch();
  port_ = open_for_reading(path_, fifo_keeper_);
  return static_cast<bool>(port_);
}

bool PortReceiver::may_have_changed(const Ready& ready) noexcept {
  return (ready.path && watch_.take_changes()) || (next_renewal_ && *next_renewal_ <= steady_clock::now());
}

// The path may lead through other files than those that are watched. A change after this is noticed again.
bool PortReceiver::is_replaced() noexcept {
  renew_watch();
  return !names_file(path_, port_.get());
}

void PortReceiver::renew_watch() noexcept {
  const int error = watch_.renew() ? 0 : errno;
  if (error != 0 && !watch_failure_is_known_) {
    logger.warning(path_, ": cannot watch for a replaced file at this path: ", std::strerror(error));
  }
  watch_failure_is_known_ = error != 0;
  next_renewal_.reset();
  if (is_shortage(error)) {
    next_renewal_ = steady_clock::now() + pauses_.longest;
  }
}

void PortReceiver::beat(const Ready& ready) noexcept {
  if (ready.wake_up) {
    wake_up_.clear();
  }
  if (heartbeat_) {
    heartbeat_->beat();
  }
}

template <class Call>
void PortReceiver::guarded(const char* what, Call call) const noexcept {
  try {
    call();
  } catch (const std::exception& failure) {
    logger.error(path_, ": ", what, " failed: ", failure.what());
  } catch (...) {
    logger.error(path_, ": ", what, " failed");
  }
}

}  // namespace ecu::tamu::ipc::detail
