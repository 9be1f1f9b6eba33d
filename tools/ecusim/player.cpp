#include "ecusim/player.h"

#include <pthread.h>

#include <algorithm>
#include <utility>

#include <ecu/tamu/com/pb_internal_message_adapter.h>

#include "ecusim/interruptible_sleep.h"

namespace ecu::sim {

namespace com = tamu::com;

namespace {

constexpr std::chrono::milliseconds retry_interval{100};

std::optional<com::Message> to_message(const Publication& publication) {
  std::optional<com::Message> message;
  if (const auto* const group = std::get_if<tamu::pb::SignalGroup>(&publication.content)) {
    message = com::PbInternalMessageAdapter<tamu::pb::SignalGroup>().serialize(*group);
  } else {
    message = com::make_message(0, std::get<com::Payload>(publication.content));
  }
  if (message) {
    message->retained = publication.retain;
  }
  return message;
}

}  // namespace

Player::Player(std::vector<Publication> messages, std::shared_ptr<com::ITransportClient> client)
    : client_(std::move(client)) {
  const Clock::time_point start = Clock::now();
  for (Publication& message : messages) {
    const Clock::time_point due = start + message.at;
    schedule_.push_back({std::move(message), due});
  }
  thread_ = std::jthread([this](const std::stop_token& stop) { play(stop); });
}

void Player::play(const std::stop_token& stop) {
  pthread_setname_np(pthread_self(), "publisher");
  while (!schedule_.empty()) {
    const auto next = std::ranges::min_element(schedule_, {}, &Entry::due);
    if (!sleep_until(stop, next->due)) {
      return;
    }
    if (!publish(next->publication)) {
      if (!sleep_until(stop, Clock::now() + retry_interval)) {
        return;
      }
    } else if (!reschedule(*next)) {
      schedule_.erase(next);
    }
  }
}

bool Player::publish(const Publication& publication) const {
  std::optional<com::Message> message = to_message(publication);
  return !message || client_->publish(publication.topic, std::move(*message)) == com::PublishResult::success;
}

bool Player::reschedule(Entry& entry) {
  if (entry.publication.times && --*entry.publication.times == 0) {
    return false;
  }
  const Clock::time_point now = Clock::now();
  entry.due += entry.publication.every;
  if (entry.due <= now) {
    entry.due = now + entry.publication.every;
  }
  return true;
}

}  // namespace ecu::sim
