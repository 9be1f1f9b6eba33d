// How it works: the queue knows whether the leader sleeps. The leader announces its sleep under the lock,
// after it has found nothing to send, and whoever then queues something takes the announcement back and
// signals `wake_`. No wake-up is lost, and a leader that is awake costs no system call. `wake_` stays
// signalled until the leader's wait clears it, so it may be signalled without the lock.
//
// A full outbox delays an observer that publishes faster than the broker accepts: it waits until the leader
// has sent all that the connection accepts. After a wait that was in vain, none waits again until something
// has been sent, so that a broker that hangs does not delay each of many publications.
//
// What it relies on: registration with `delivery_` and the subscription change are one step under the lock.
// Otherwise a connection that comes up in between would subscribe twice or not at all.

#include "mqtt/send_queue.h"

#include <chrono>
#include <new>
#include <string_view>
#include <utility>

namespace ecu::tamu::com::mqtt {

namespace {

// How long a publication from an observer's call waits for a broker that accepts nothing.
constexpr std::chrono::seconds outbox_space_timeout{1};

Message presence_message(std::string_view state) {
  Message message;
  message.acknowledged = true;
  message.retained = true;
  message.payload.assign(state.begin(), state.end());
  return message;
}

}  // namespace

SendQueue::SendQueue(std::optional<Presence> presence, Delivery& delivery, const posix::Event& wake)
    : presence_(std::move(presence)), delivery_(delivery), wake_(wake) {}

PublishResult SendQueue::publish(const std::string& topic, Message message) {
  MutexLock lock(mutex_);
  if (!message.retained && outbox_.full(topic, message) && delivery_.is_calling_here()) {
    wait_for_outbox_space(lock, topic, message);
  }
  const PublishResult result = outbox_.push(topic, std::move(message));
  wake_leader(lock);
  return result;
}

void SendQueue::wait_for_outbox_space(MutexLock& lock, const std::string& topic, const Message& message) {
  const auto waited_enough = [&]() TAMU_REQUIRES(mutex_) {
    return broker_stuck_ || stopped_ || !outbox_.connected() || !outbox_.full(topic, message);
  };
  if (!outbox_space_.wait_for(lock, outbox_space_timeout, waited_enough)) {
    broker_stuck_ = true;
  }
}

void SendQueue::subscribe(const std::string& topic, int max_qos,
                          const std::shared_ptr<ISubscriptionObserver>& observer) {
  MutexLock lock(mutex_);
  // Must come first: a lack of memory must not leave a registration that the broker never learns of.
  subscription_changes_.push_back({{topic, max_qos}, true});
  if (!delivery_.add(topic, max_qos, observer) || !outbox_.connected()) {
    subscription_changes_.pop_back();
    return;
  }
  wake_leader(lock);
}

void SendQueue::unsubscribe(const std::string& topic, const ISubscriptionObserver* observer) {
  MutexLock lock(mutex_);
  if (delivery_.remove(topic, observer) && outbox_.connected()) {
    subscription_changes_.push_back({{topic}, false});
    wake_leader(lock);
  }
}

// Releases the lock of its caller. The analysis cannot know that the lock is that of mutex_.
void SendQueue::wake_leader(MutexLock& lock) TAMU_NO_THREAD_SAFETY_ANALYSIS {
  const bool asleep = std::exchange(leader_asleep_, false);
  lock.unlock();
  if (asleep) {
    wake_.signal();
  }
}

bool SendQueue::connected() const {
  const MutexLock lock(mutex_);
  return outbox_.connected();
}

void SendQueue::stop() {
  const MutexLock lock(mutex_);
  stopped_ = true;
  outbox_space_.notify_all();
}

void SendQueue::connection_up() {
  const MutexLock lock(mutex_);
  outbox_.connection_up();
  announce_online();
  subscription_changes_.clear();
  for (Subscription& subscription : delivery_.subscriptions()) {
    subscription_changes_.push_back({std::move(subscription), true});
  }
}

bool SendQueue::connection_lost() noexcept {
  const MutexLock lock(mutex_);
  const bool was_up = outbox_.connected();
  outbox_.connection_lost();
  subscription_changes_.clear();
  outbox_space_.notify_all();
  return was_up;
}

void SendQueue::forget(const std::vector<PublicationPtr>& publications) {
  const MutexLock lock(mutex_);
  outbox_.forget(publications);
}

void SendQueue::repeat() {
  const MutexLock lock(mutex_);
  outbox_.repeat();
  announce_online();
}

void SendQueue::announce_online() {
  if (presence_) {
    outbox_.announce(presence_->topic, presence_message(presence_->online));
  }
}

void SendQueue::announce_offline() {
  if (presence_) {
    const MutexLock lock(mutex_);
    outbox_.announce(presence_->topic, presence_message(presence_->offline));
  }
}

std::size_t SendQueue::take_changes(std::vector<SubscriptionChange>& changes) {
  const MutexLock lock(mutex_);
  changes.swap(subscription_changes_);
  return changes.size() + outbox_.size();
}

bool SendQueue::take_batch(const Room& room, std::vector<PublicationPtr>& batch) {
  const MutexLock lock(mutex_);
  if (room.publications > 0) {
    outbox_.batches_written();
  }
  if (batch.empty() && !can_send(room)) {
    outbox_space_.notify_all();
    return false;
  }
  broker_stuck_ = false;
  outbox_.pop_batch(room.publications, room.acknowledged, batch);
  return true;
}

bool SendQueue::can_send(const Room& room) noexcept {
  try {
    return room.publications > 0 && outbox_.has_next(room.acknowledged > 0);
  } catch (const std::bad_alloc&) {
    return true;  // sending then fails, too, and ends the connection
  }
}

bool SendQueue::has_publications() const {
  const MutexLock lock(mutex_);
  return outbox_.size() > 0;
}

bool SendQueue::begin_sleep(const Room& room, bool accepts_publications) {
  const MutexLock lock(mutex_);
  if (!subscription_changes_.empty() || can_send(room)) {
    return false;
  }
  leader_asleep_ = outbox_.size() == 0 || accepts_publications;
  return true;
}

void SendQueue::end_sleep() {
  const MutexLock lock(mutex_);
  leader_asleep_ = false;
}

}  // namespace ecu::tamu::com::mqtt
