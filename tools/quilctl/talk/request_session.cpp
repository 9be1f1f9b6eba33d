#include "quilctl/talk/request_session.h"

#include <algorithm>
#include <optional>
#include <sstream>
#include <utility>

#include "common/notes.h"

namespace ecu::ctl {

RequestSession::RequestSession(const Options& options, const std::vector<std::string>& filters,
                               Handler on_message, std::chrono::duration<double> default_timeout)
    : bus_(options.broker, filters), on_message_(std::move(on_message)) {
  set_time_limit(options.timeout.value_or(default_timeout));
  if (!wait_until([this] { return settled_; })) {
    const std::string reason = "no answer within " + time_limit();
    throw up_
        ? Failure(ExitCode::broker_unreachable, "broker " + bus_.broker() + " does not respond: " + reason)
        : bus_.not_reachable(reason);
  }
  tools::note(bus_.loss_notice());
}

void RequestSession::set_time_limit(std::chrono::duration<double> time) {
  limit_ = time;
  deadline_ = Clock::now() + std::chrono::duration_cast<Clock::duration>(time);
}

std::string RequestSession::time_limit() const {
  std::ostringstream text;
  text << limit_.count() << " s";
  return text.str();
}

bool RequestSession::wait_until(const std::function<bool()>& is_done, Clock::time_point deadline) {
  while (!is_done()) {
    const std::optional<Event> event = bus_.next(std::min(deadline, deadline_));
    if (!event) {
      return false;
    }
    handle(*event);
  }
  return true;
}

void RequestSession::await_values(const Options& options,
                                  const std::function<std::vector<VariableRow>()>& rows) {
  const auto is_complete = [&rows] {
    const auto all = rows();
    return !all.empty() &&
           std::ranges::all_of(all, [](const VariableRow& row) { return row.value().has_value(); });
  };
  if (options.wait && !is_complete()) {
    set_time_limit(*options.wait);
    (void)wait_until(is_complete);
  }
}

void RequestSession::process_until(Clock::time_point time) {
  (void)wait_until([] { return false; }, time);
}

void RequestSession::process_until_readable(int input) {
  while (const std::optional<Event> event = bus_.next(deadline_, input)) {
    handle(*event);
  }
}

void RequestSession::handle(const Event& event) {
  switch (event.kind) {
    case Event::Kind::up:
      up_ = true;
      break;
    case Event::Kind::down:
      throw up_ ? Failure(ExitCode::broker_unreachable,
                          "connection to broker " + bus_.broker() + " lost: " + event.text)
                : bus_.not_reachable(event.text, event.failure);
    case Event::Kind::refused:
      throw subscription_refused(event.text);
    case Event::Kind::settled:
      settled_ = true;
      break;
    case Event::Kind::message:
      on_message_(event);
      break;
  }
}

}  // namespace ecu::ctl
