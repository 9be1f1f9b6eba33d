#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <ecu/tamu/com/message.h>
#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/thread_safety.h>

#include "mqtt/delivery.h"
#include "mqtt/outbox.h"
#include "posix/event.h"

namespace ecu::tamu::com::mqtt {

/// A subscription to request from the broker, or to end there.
struct SubscriptionChange {
  Subscription subscription;
  bool wanted;
};

/// What waits for the leader to send it: subscription changes and publications. Any thread may add to it, and
/// wakes a leader that sleeps. Operations may throw std::bad_alloc: one for any thread then costs at most the
/// message or the subscription that it was called for; after one for the leader the connection must be ended.
class SendQueue {
 public:
  /// How many publications may be sent now, and how many of them with quality of service 1. There is room
  /// only when everything before has been written.
  struct Room {
    std::size_t publications = 0;
    std::size_t acknowledged = 0;
  };

  /// `delivery` and `wake`, for which the leader waits while it sleeps, must outlive the queue.
  SendQueue(std::optional<Presence> presence, Delivery& delivery, const posix::Event& wake);

  // For any thread.

  /// Queues a message, or drops it and returns the reason. From an observer's call an unretained message
  /// first waits for space, for at most 1 s and not after `stop`.
  PublishResult publish(const std::string& topic, Message message);
  /// Registers the observer at `delivery` and queues the request to the broker, if one is needed.
  void subscribe(const std::string& topic, int max_qos,
                 const std::shared_ptr<ISubscriptionObserver>& observer);
  /// The reverse. The observer may still be in a call.
  void unsubscribe(const std::string& topic, const ISubscriptionObserver* observer);
  /// Whether there is a connection.
  [[nodiscard]] bool connected() const;
  /// From now on no publication waits for space.
  void stop();

  // For the leader.

  /// Queues what a new connection begins with: all subscriptions, all retained messages and the presence.
  void connection_up();
  /// Discards what waits, except retained messages. Returns whether there was a connection.
  bool connection_lost() noexcept;
  /// Queues all retained messages and the presence again.
  void repeat();
  /// See Outbox::forget.
  void forget(const std::vector<PublicationPtr>& publications);
  /// Queues the last message of an orderly stop.
  void announce_offline();

  /// Moves the subscription changes to `changes`, which is empty. Returns how many packets waited,
  /// publications included.
  [[nodiscard]] std::size_t take_changes(std::vector<SubscriptionChange>& changes);
  /// Fills `batch`, which may hold a publication already, with as many as there is room for. If there is
  /// nothing to send, returns false, and what waits for space is queued or dropped.
  [[nodiscard]] bool take_batch(const Room& room, std::vector<PublicationPtr>& batch);
  [[nodiscard]] bool has_publications() const;

  /// Announces that the leader sleeps, so that it must be woken for what is queued. False when there is
  /// something to send now. While publications wait for a connection that accepts none, as
  /// `accepts_publications` says, nothing wakes the leader: a new one can only wait with the others.
  [[nodiscard]] bool begin_sleep(const Room& room, bool accepts_publications);
  void end_sleep();

 private:
  void wait_for_outbox_space(MutexLock& lock, const std::string& topic, const Message& message)
      TAMU_REQUIRES(mutex_);
  void wake_leader(MutexLock& lock) TAMU_RELEASE(mutex_);
  void announce_online() TAMU_REQUIRES(mutex_);
  [[nodiscard]] bool can_send(const Room& room) noexcept TAMU_REQUIRES(mutex_);

  // Constant after construction.
  const std::optional<Presence> presence_;

  // With their own synchronisation.
  Delivery& delivery_;
  const posix::Event& wake_;
  ConditionVariable outbox_space_;  // or waiting for it has become useless

  mutable Mutex mutex_;  // never held while an observer is called

  // Guarded by mutex_.
  Outbox outbox_ TAMU_GUARDED_BY(mutex_);
  // Since the connection is up.
  std::vector<SubscriptionChange> subscription_changes_ TAMU_GUARDED_BY(mutex_);
  bool leader_asleep_ TAMU_GUARDED_BY(mutex_) = false;  // and not woken yet
  // A wait for space has timed out, and nothing has been sent since.
  bool broker_stuck_ TAMU_GUARDED_BY(mutex_) = false;
  bool stopped_ TAMU_GUARDED_BY(mutex_) = false;
};

}  // namespace ecu::tamu::com::mqtt
