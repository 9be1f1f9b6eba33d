#include "quilctl/talk/event_queue.h"

#include <algorithm>
#include <utility>

#include "common/times.h"

namespace ecu::ctl {

namespace com = tamu::com;

namespace {

constexpr std::size_t max_waiting_events = 10'000;
constexpr std::size_t max_waiting_bytes = std::size_t{16} * 1024 * 1024;

}  // namespace

void EventQueue::message(const std::string& topic, const com::Message& msg) {
  put({Event::Kind::message, topic, msg, {}});
}

void EventQueue::connection_up() {
  put({Event::Kind::up, {}, {}, {}});
}

void EventQueue::connection_down(com::ConnectionFailure failure, const std::string& reason) {
  put({Event::Kind::down, reason, {}, {}, failure});
}

void EventQueue::subscription_refused(const std::string& filter) {
  put({Event::Kind::refused, filter, {}, {}});
}

void EventQueue::subscriptions_settled() {
  put({Event::Kind::settled, {}, {}, {}});
}

void EventQueue::messages_dropped(const std::string& /*filter*/, std::uint64_t count) {
  const tamu::MutexLock lock(mutex_);
  lost_ += count;
}

std::optional<Event> EventQueue::take() {
  const tamu::MutexLock lock(mutex_);
  if (waiting_.empty()) {
    wake_.clear();
    return std::nullopt;
  }
  Event event = std::move(waiting_.front());
  waiting_.pop_front();
  bytes_ -= event.message.payload.size();
  return event;
}

std::uint64_t EventQueue::take_lost() {
  const tamu::MutexLock lock(mutex_);
  return std::exchange(lost_, 0);
}

void EventQueue::put(Event event) {
  event.at = tools::wall_clock_now();
  const tamu::MutexLock lock(mutex_);
  bytes_ += event.message.payload.size();
  waiting_.push_back(std::move(event));
  drop_oldest_messages();
  wake_.set();
}

void EventQueue::drop_oldest_messages() {
  while (waiting_.size() > backlog_ * max_waiting_events || bytes_ > backlog_ * max_waiting_bytes) {
    const auto oldest =
        std::ranges::find(waiting_, Event::Kind::message, [](const Event& event) { return event.kind; });
    if (oldest == waiting_.end()) {
      return;
    }
    bytes_ -= oldest->message.payload.size();
    waiting_.erase(oldest);
    ++lost_;
  }
}

}  // namespace ecu::ctl
