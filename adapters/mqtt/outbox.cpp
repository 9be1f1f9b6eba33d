#include "mqtt/outbox.h"

#include <algorithm>
#include <utility>

#include "mqtt/mqtt_log.h"

namespace ecu::tamu::com::mqtt {

namespace {

std::size_t size_of(const Publication& publication) {
  return publication.topic.size() + publication.message.payload.size();
}

}  // namespace

PublishResult Outbox::push(const std::string& topic, Message message) {
  if (message.retained) {
    remember(topic, message);
  }
  if (!connected_) {
    return message.retained ? PublishResult::success : drop(PublishResult::not_connected, topic);
  }
  if (full()) {
    return push_to_full_queue(topic, std::move(message));
  }
  enqueue(topic, std::move(message));
  return PublishResult::success;
}

void Outbox::connection_up() {
  connected_ = true;
  drop_reported_ = false;
  for (const Publication& publication : retained_) {
    enqueue(publication.topic, publication.message);
  }
}

void Outbox::connection_lost() {
  connected_ = false;
  drop_reported_ = false;
  queue_.clear();
  queued_bytes_ = 0;
}

Publication Outbox::pop() {
  Publication publication = std::move(queue_.front());
  queue_.pop_front();
  queued_bytes_ -= size_of(publication);
  if (queue_.empty()) {
    drop_reported_ = false;
  }
  return publication;
}

void Outbox::remember(const std::string& topic, const Message& message) {
  if (const auto held = index_.find(topic); held != index_.end()) {
    retained_[held->second].message = message;
    return;
  }
  // In this order the index never refers to a message that is not there, even when memory runs out.
  retained_.push_back({topic, message});
  index_.emplace(topic, retained_.size() - 1);
}

bool Outbox::full() const noexcept {
  return queue_.size() >= max_queued_publications || queued_bytes_ >= max_queued_bytes;
}

PublishResult Outbox::push_to_full_queue(const std::string& topic, Message message) {
  if (!message.retained) {
    return drop(PublishResult::overload, topic);
  }
  // The youngest of its topic, as the broker keeps what comes last.
  const auto older = std::find_if(queue_.rbegin(), queue_.rend(), [&topic](const Publication& publication) {
    return publication.message.retained && publication.topic == topic;
  });
  if (older == queue_.rend()) {
    enqueue(topic, std::move(message));
  } else {
    queued_bytes_ -= size_of(*older);
    older->message = std::move(message);
    queued_bytes_ += size_of(*older);
  }
  return PublishResult::success;
}

void Outbox::enqueue(const std::string& topic, Message message) {
  queue_.push_back({topic, std::move(message)});
  queued_bytes_ += size_of(queue_.back());
}

PublishResult Outbox::drop(PublishResult reason, const std::string& topic) {
  if (!std::exchange(drop_reported_, true)) {
    const std::string_view why = reason == PublishResult::overload ? "broker too slow" : "no connection";
    mqtt_log.warning(why, ": message on topic ", topic, " dropped, more may follow");
  }
  return reason;
}

}  // namespace ecu::tamu::com::mqtt
