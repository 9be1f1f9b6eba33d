#include "quilctl/talk/monitor_session.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <utility>

#include <ecu/tamu/com/topics.h>

#include "common/notes.h"
#include "quilctl/base/failure.h"
#include "quilctl/model/variable_view.h"

namespace ecu::ctl {

namespace {

constexpr std::chrono::seconds default_timeout{5};
constexpr std::chrono::seconds loss_interval{1};

}  // namespace

MonitorSession::MonitorSession(const Options& options, const std::vector<std::string>& filters, int max_qos,
                               VariableSource* source)
    : options_(options),
      bus_(options.broker, filters, max_qos),
      source_(source),
      first_deadline_(Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                         options.timeout.value_or(default_timeout))) {}

std::optional<Event> MonitorSession::next(Clock::time_point wake, int input) {
  auto event = next_event(wake, input);
  if (!event && !was_up_ && Clock::now() >= first_deadline_) {
    throw bus_.not_reachable("no answer");
  }
  notice_ = event ? notice_of(*event) : "";
  if (notice_.empty() && Clock::now() >= loss_due_) {
    notice_ = loss_notice();
  }
  return event;
}

std::optional<Event> MonitorSession::next_event(Clock::time_point wake, int input) {
  if (!was_up_ || (options_.timeout && Clock::now() < first_deadline_)) {
    wake = std::min(wake, first_deadline_);
  }
  if (Clock::now() < loss_due_) {
    wake = std::min(wake, loss_due_);
  }
  auto event = source_ != nullptr ? source_->next_missed() : std::nullopt;
  return event ? std::move(event) : bus_.next(wake, input, true);
}

MonitorSession::Clock::time_point MonitorSession::end() const {
  return options_.timeout ? first_deadline_ : Clock::time_point::max();
}

bool MonitorSession::goes_on(unsigned shown) const {
  const bool is_late = was_up_ && Clock::now() >= end();
  return std::cout && !is_late && (!options_.count || shown < *options_.count);
}

void MonitorSession::run(const std::function<bool(const Event&)>& show) {
  unsigned shown = 0;
  try {
    while (goes_on(shown)) {
      const auto event = next();
      tools::note(notice_);
      shown += event && show(*event) ? 1 : 0;
    }
    if (std::cout && options_.count && shown < *options_.count) {
      throw Failure(ExitCode::time_out, std::to_string(shown) + " of " + std::to_string(*options_.count) +
                                            " within the time of --timeout");
    }
  } catch (const Interrupted&) {
    // The normal way to stop: Ctrl-C.
  }
  tools::note(loss_notice());
}

std::string MonitorSession::notice_of(const Event& event) {
  switch (event.kind) {
    case Event::Kind::up:
      return std::exchange(was_up_, true) ? "connected again" : "";
    case Event::Kind::down:
      if (!was_up_) {
        throw bus_.not_reachable(event.text, event.failure);
      }
      return std::exchange(reason_, event.text) == event.text
                 ? ""
                 : "no connection: " + event.text + "; trying again";
    case Event::Kind::refused:
      throw subscription_refused(event.text);
    case Event::Kind::settled:
      reason_.clear();
      return "";
    case Event::Kind::message:
      return event.text == tamu::com::topics::daemon_presence ? presence_notice(event) : "";
  }
  return "";
}

std::string MonitorSession::loss_notice() {
  std::string notice = bus_.loss_notice();
  if (!notice.empty()) {
    loss_due_ = Clock::now() + loss_interval;
  }
  return notice;
}

std::string MonitorSession::presence_notice(const Event& event) {
  const bool now = says_on_line(event.message);
  return std::exchange(daemon_on_line_, now) == now ? ""
         : now                                      ? "the daemon is on line"
                                                    : "the daemon is off line";
}

}  // namespace ecu::ctl
