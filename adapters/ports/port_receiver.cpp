#include "ports/port_receiver.h"

#include <cerrno>
#include <exception>
#include <system_error>

#include <ecu/tamu/logging/logging.h>

#include "ports/port_file.h"

namespace ecu::tamu::ipc::detail {

namespace {

using std::chrono::steady_clock;

constexpr auto logger = logging::module("tamu.ipc.queueport");

// What a drain takes at most from a port that cannot say how much waits; a far side that never pauses would
// otherwise keep a stop from coming to its end.
constexpr std::size_t drain_limit = std::size_t{1024} * 1024;

constexpr int no_descriptor = -1;  // of which poll sees nothing

}  // namespace

bool PortReceiver::open(const std::string& path) {
  path_ = path;
  parser_ = RecordParser();
  port_ = open_for_reading(path, fifo_keeper_);
  return static_cast<bool>(port_);
}

void PortReceiver::receive() {
  bool stopped = false;
  while (port_ && !stopped) {
    const Ready ready = wait_for_input(port_.get(), stop_.fd(), parser_.deadline());
    stopped = ready.second;
    if (stopped) {
      drain();
    } else if (ready.first) {
      if (!read_once() && port_ && !ready.first_readable) {
        end_reception("the port has failed");
      }
    } else {
      deliver(steady_clock::now());
    }
  }
  guarded([this] { consumer_->finished(); });
  stop_.clear();
}

// An incomplete record at the end stays, as its rest may be on its way. One that has whole records behind its
// beginning is torn, or carries them as its payload: its time tells.
void PortReceiver::drain() {
  const std::size_t waiting = bytes_waiting(port_.get()).value_or(drain_limit);
  const std::uint64_t goal = received_ + waiting;
  while (received_ < goal && read_once()) {
  }
  wait_for_rest(steady_clock::now() + record_time_limit);
  while (parser_.skip_torn()) {
    deliver(steady_clock::now());
  }
  report_damage();
}

void PortReceiver::wait_for_rest(TimePoint deadline) {
  while (port_ && parser_.seems_torn() && steady_clock::now() < deadline) {
    if (!wait_for_input(port_.get(), no_descriptor, deadline).first_readable || !read_once()) {
      break;
    }
  }
}

// False when nothing more can be read now.
bool PortReceiver::read_once() {
  const std::ptrdiff_t count = read_some(port_.get(), parser_.room());
  if (count < 0 && errno == EAGAIN) {
    return false;
  }
  if (count <= 0) {
    end_reception(count == 0 ? "end of file" : std::generic_category().message(errno));
    return false;
  }
  const TimePoint now = steady_clock::now();
  received_ += static_cast<std::size_t>(count);
  parser_.add(static_cast<std::size_t>(count), now);
  deliver(now);
  return true;
}

void PortReceiver::end_reception(std::string_view reason) {
  deliver(TimePoint::max());
  report_damage();
  logger.error(path_, ": reception ends: ", reason);
  port_.reset();
}

void PortReceiver::deliver(TimePoint now) {
  using Event = RecordParser::Event;
  for (Event event = parser_.next(now); event != Event::none; event = parser_.next(now)) {
    switch (event) {
      case Event::record:
        guarded([this] { consumer_->consume(parser_.record()); });
        break;
      case Event::end_of_frame:
        guarded([this] { consumer_->frame_finished(); });
        break;
      case Event::damage:
        report_damage();
        break;
      case Event::none:
        break;
    }
  }
}

void PortReceiver::report_damage() {
  if (const std::size_t count = parser_.take_damage(); count > 0) {
    logger.error(path_, ": ", count, " bytes dropped, they are no whole record");
  }
}

template <class Call>
void PortReceiver::guarded(Call call) const {
  try {
    call();
  } catch (const std::exception& failure) {
    logger.error(path_, ": consumer failed: ", failure.what());
  } catch (...) {
    logger.error(path_, ": consumer failed");
  }
}

}  // namespace ecu::tamu::ipc::detail
