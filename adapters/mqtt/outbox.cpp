// How it works: a retained message is stored, and the queue and the store share it. The queue is drained in
// order, with one exception: while the broker owes too many acknowledgements, publications of quality of
// service 1 move to `stalled_`, and later publications on their topics follow them there, so that the order
// within a topic is kept. `stalled_` is therefore always older than `queue_` and is sent first.
//
// What it relies on: the owner's lock, and an owner that calls `connection_lost` between two `connection_up`.

#include "mqtt/outbox.h"

#include <algorithm>
#include <utility>

#include "mqtt/mqtt_log.h"

namespace ecu::tamu::com::mqtt {

namespace {

std::size_t size_of(const std::string& topic, const Message& message) {
  return topic.size() + message.payload.size();
}

std::size_t size_of(const Publication& publication) {
  return size_of(publication.topic, publication.message);
}

PublicationPtr make_publication(const std::string& topic, Message message) {
  return std::make_shared<const Publication>(Publication{topic, std::move(message)});
}

}  // namespace

PublishResult Outbox::push(const std::string& topic, Message message) {
  const bool retained = message.retained;
  if (!connected_ && !retained) {
    return drop(PublishResult::not_connected, topic);
  }
  const bool is_full = full(topic, message);
  if (is_full && !retained) {
    return drop(PublishResult::overload, topic);
  }
  if (retained) {
    message.payload.shrink_to_fit();  // it may be kept for a long time
  }
  PublicationPtr publication = make_publication(topic, std::move(message));
  if (retained) {
    remember(publication);
  }
  if (!connected_) {
    return PublishResult::success;
  }
  // The newest must be the last on its topic, because the broker keeps the one that arrives last.
  if (!is_full || !replace_retained(publication)) {
    enqueue(std::move(publication));
  }
  return PublishResult::success;
}

void Outbox::connection_up() {
  connected_ = true;
  drop_reported_ = false;
  repeat();
}

void Outbox::repeat() {
  for (const PublicationPtr& publication : retained_) {
    enqueue(publication);
  }
}

void Outbox::connection_lost() noexcept {
  if (!std::exchange(connected_, false)) {
    return;  // the outage whose first drop was logged continues
  }
  drop_reported_ = false;
  queue_.clear();
  stalled_.clear();
  stalled_topics_.clear();
  queued_bytes_ = 0;
  stalled_bytes_ = 0;
  large_is_unwritten_ = false;
}

void Outbox::announce(const std::string& topic, Message message) {
  enqueue(make_publication(topic, std::move(message)));
}

PublicationPtr Outbox::pop(bool takes_acknowledged) {
  Queue* const from = source(takes_acknowledged);
  if (from == nullptr) {
    return nullptr;
  }
  PublicationPtr publication = std::move(from->front());
  from->pop_front();
  bytes_of(*from) -= size_of(*publication);
  if (from == &stalled_) {
    stalled_topics_.erase(stalled_topics_.find(publication->topic));
  }
  if (size() == 0) {
    drop_reported_ = false;
  }
  return publication;
}

void Outbox::pop_batch(std::size_t most, std::size_t most_acknowledged, std::vector<PublicationPtr>& batch) {
  std::size_t bytes = 0;
  while (batch.size() < most && bytes < max_batch_bytes) {
    PublicationPtr next = pop(most_acknowledged > 0);
    if (!next) {
      return;
    }
    bytes += size_of(*next);
    large_is_unwritten_ = large_is_unwritten_ || bytes > max_queued_bytes;
    most_acknowledged -= next->message.acknowledged ? 1U : 0U;
    batch.push_back(std::move(next));
  }
}

Outbox::Queue* Outbox::source(bool takes_acknowledged) {
  if (!stalled_.empty() && (takes_acknowledged || !stalled_.front()->message.acknowledged)) {
    return &stalled_;
  }
  while (!takes_acknowledged && !queue_.empty() &&
         (queue_.front()->message.acknowledged || stalled_topics_.contains(queue_.front()->topic))) {
    stall_front();
  }
  return queue_.empty() ? nullptr : &queue_;
}

void Outbox::stall_front() {
  const auto topic = stalled_topics_.insert(queue_.front()->topic);
  try {
    stalled_.push_back(queue_.front());
  } catch (...) {
    stalled_topics_.erase(topic);
    throw;
  }
  const std::size_t size = size_of(*queue_.front());
  queue_.pop_front();
  queued_bytes_ -= size;
  stalled_bytes_ += size;
}

void Outbox::remember(PublicationPtr publication) {
  if (const auto held = index_.find(publication->topic); held != index_.end()) {
    retained_[held->second] = std::move(publication);
    return;
  }
  retained_.push_back(publication);
  try {
    index_.emplace(publication->topic, retained_.size() - 1);
  } catch (...) {
    retained_.pop_back();
    throw;
  }
}

void Outbox::forget(const std::vector<PublicationPtr>& publications) {
  const std::unordered_set<PublicationPtr> forgotten(publications.begin(), publications.end());
  std::erase_if(retained_, [&](const PublicationPtr& one) {
    return forgotten.contains(one) && index_.erase(one->topic) == 1;
  });
  for (std::size_t i = 0; i < retained_.size(); ++i) {
    index_.find(retained_[i]->topic)->second = i;
  }
}

bool Outbox::full(const std::string& topic, const Message& message) const {
  const bool stalls = !stalled_.empty() && (message.acknowledged || stalled_topics_.contains(topic));
  return queue_.size() + (stalls ? stalled_.size() : 0) >= max_queued_publications ||
         queued_bytes_ + (stalls ? stalled_bytes_ : 0) >= max_queued_bytes ||
         (large_is_unwritten_ && size_of(topic, message) > max_queued_bytes);
}

bool Outbox::replace_retained(const PublicationPtr& publication) {
  for (Queue* const queue : {&queue_, &stalled_}) {
    const auto older = std::find_if(queue->rbegin(), queue->rend(), [&](const PublicationPtr& queued) {
      return queued->message.retained && queued->topic == publication->topic;
    });
    if (older != queue->rend()) {
      bytes_of(*queue) += size_of(*publication) - size_of(**older);
      *older = publication;
      return true;
    }
  }
  return false;
}

void Outbox::enqueue(PublicationPtr publication) {
  const std::size_t size = size_of(*publication);
  queue_.push_back(std::move(publication));
  queued_bytes_ += size;
}

PublishResult Outbox::drop(PublishResult reason, const std::string& topic) {
  if (!std::exchange(drop_reported_, true)) {
    const std::string_view why = reason == PublishResult::overload ? "broker too slow" : "no connection";
    mqtt_log.warning(why, ": message on topic ", topic, " dropped, more may follow");
  }
  return reason;
}

}  // namespace ecu::tamu::com::mqtt
