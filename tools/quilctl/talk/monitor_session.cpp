#include "quilctl/talk/monitor_session.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "quilctl/base/failure.h"
#include "quilctl/base/notes.h"

namespace ecu::ctl {

namespace {

constexpr std::chrono::seconds default_timeout{5};
constexpr std::chrono::seconds loss_interval{1};

}  // namespace

LongWatch::LongWatch(const Options& options, Bus& bus)
    : bus_(bus),
      first_deadline_(Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                         options.timeout.value_or(default_timeout))) {}

std::optional<Event> LongWatch::next(Clock::time_point wake) {
  news_.clear();
  auto event = next_event(wake);
  if (!event && !was_up_ && Clock::now() >= first_deadline_) {
    throw bus_.not_reachable("no answer");
  }
  if (event) {
    news_ = news_of(*event);
  }
  if (news_.empty() && Clock::now() >= loss_due_) {
    news_ = loss_news();
  }
  return event;
}

std::optional<Event> LongWatch::next_event(Clock::time_point wake) {
  if (!was_up_) {
    wake = std::min(wake, first_deadline_);
  }
  if (Clock::now() < loss_due_) {
    wake = std::min(wake, loss_due_);
  }
  return bus_.next(wake);
}

std::string LongWatch::news_of(const Event& event) {
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
      throw Failure(ExitCode::refused, "the broker refuses the subscription to " + event.text);
    case Event::Kind::settled:
      reason_.clear();
      return "";
    case Event::Kind::message:
      return event.text == daemon_presence ? presence_news(event) : "";
  }
  return "";
}

std::string LongWatch::loss_news() {
  const std::uint64_t lost = bus_.take_lost();
  if (lost == 0) {
    return "";
  }
  loss_due_ = Clock::now() + loss_interval;
  return std::to_string(lost) + " messages came faster than they could be taken and are lost";
}

void note_losses(LongWatch& watch) {
  if (const std::string losses = watch.loss_news(); !losses.empty()) {
    note(losses);
  }
}

std::string LongWatch::presence_news(const Event& event) {
  const auto before = presence_.daemon_on_line();
  (void)presence_.take(event.text, event.message);
  const auto now = presence_.daemon_on_line();
  return now == before ? "" : now == true ? "the daemon is on line" : "the daemon is off line";
}

}  // namespace ecu::ctl
