#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <ecu/tamu/com/message.h>
#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/thread_safety.h>

#include "mqtt/loss_log.h"
#include "mqtt/mailbox.h"

namespace ecu::tamu::com::mqtt {

/// A topic filter that the client subscribes to at the broker.
struct Subscription {
  std::string filter;
  int max_qos = 0;
};

/// Delivers messages to the observers that are subscribed to their topics. Every operation may be called from
/// any thread. Messages are posted by the network and delivered by the threads that call `deliver_next`.
/// Different observers may be called at the same time; one observer gets one call at a time. An operation
/// that throws std::bad_alloc costs at most the message or the registration that it was called for.
class Delivery {
 public:
  using Clock = LossLog::Clock;

  /// `report_losses` and `close` call `on_loss` for messages that were dropped because an observer was too
  /// slow, or because they exceed the limit of a queue. `now` is the clock for the interval between log
  /// lines. `backlog` is that of the mailboxes.
  explicit Delivery(
      std::function<void(const Loss&)> on_loss = [](const Loss&) {},
      std::function<Clock::time_point()> now = Clock::now, std::size_t backlog = 1)
      : on_loss_(std::move(on_loss)), backlog_(backlog), loss_log_(std::move(now)) {}

  /// True when the client must subscribe to `topic` at the broker: the topic is new, or its quality of
  /// service has risen.
  bool add(const std::string& topic, int max_qos, const std::shared_ptr<ISubscriptionObserver>& observer);

  /// Ends the registration and discards the messages that wait for it. True when no other observer is
  /// registered for `topic`. The observer may still be in a call: `wait_for` waits for its end.
  bool remove(const std::string& topic, const ISubscriptionObserver* observer);

  /// Returns when `observer` is not being called for `topic`, at once when called from inside that call.
  void wait_for(const std::string& topic, const ISubscriptionObserver* observer);

  /// The subscriptions at the broker: each filter once, in the order of first registration.
  [[nodiscard]] std::vector<Subscription> subscriptions() const;

  /// Queues a message for every observer whose subscription matches, once for each.
  void post(const std::string& topic, Message message);

  /// Counts a message that is too large for a queue as dropped, for every observer whose subscription
  /// matches.
  void drop(const std::string& topic);

  /// How many messages have been posted.
  [[nodiscard]] std::uint64_t posted() const;

  /// Whether all calls for the first `count` posted messages have ended.
  [[nodiscard]] bool delivered(std::uint64_t count) const;

  /// Whether an observer has messages that no thread is delivering.
  [[nodiscard]] bool pending() const;

  /// Delivers all waiting messages to one observer. False when there was nothing to do.
  bool deliver_next();

  /// Whether the calling thread is inside an observer's call.
  [[nodiscard]] bool is_calling_here() const;

  /// When the next line about losses is due; `max` when there is none.
  [[nodiscard]] Clock::time_point losses_due() const { return loss_log_.due(); }

  /// Reports what was dropped since the last call, also while an observer is being called. Logs what was
  /// dropped since the last line about each topic, if that line is old enough.
  void report_losses();

  /// Discards what waits, and reports what was dropped before; from then on nothing is queued. Calls in
  /// progress continue.
  void close();

 private:
  // Guarded by the mutex of its Delivery, but the observer is called without it.
  struct Recipient {
    Recipient(std::shared_ptr<ISubscriptionObserver> observer, std::size_t backlog)
        : mailbox(std::move(observer), backlog) {}

    Mailbox mailbox;
    bool scheduled = false;                        // waits in ready_, or is being served
    std::uint64_t last_post = 0;                   // number of the message that was posted to it last
    std::thread::id server;                        // the thread that calls the observer
    std::shared_ptr<const QueuedMessage> current;  // the message of the present call; null between calls
  };
  struct Route {
    [[nodiscard]] bool matches(const std::string& topic) const;

    std::string filter;
    bool has_wildcard;
    int max_qos;
    std::vector<std::shared_ptr<Recipient>> recipients;
  };

  Route* find_route(const std::string& topic) TAMU_REQUIRES(mutex_);
  std::shared_ptr<Recipient> recipient_of(const std::shared_ptr<ISubscriptionObserver>& observer)
      TAMU_REQUIRES(mutex_);
  template <class Action>
  void for_each_recipient(const std::string& topic, Action action) TAMU_REQUIRES(mutex_);
  void queue(const std::shared_ptr<Recipient>& recipient, const std::string& filter,
             const std::shared_ptr<const QueuedMessage>& message) TAMU_REQUIRES(mutex_);
  [[nodiscard]] std::size_t serve(Recipient& recipient, MutexLock& lock) noexcept TAMU_REQUIRES(mutex_);
  [[nodiscard]] std::optional<Loss> take_loss() noexcept;
  void report_all() noexcept;

  // Constant after construction.
  const std::function<void(const Loss&)> on_loss_;
  const std::size_t backlog_;

  // With their own synchronisation.
  LossLog loss_log_;
  ConditionVariable call_ended_;  // waited for with mutex_

  mutable Mutex mutex_;  // never held while an observer is called

  // Guarded by mutex_.
  std::vector<Route> routes_ TAMU_GUARDED_BY(mutex_);
  std::vector<std::shared_ptr<Recipient>> recipients_ TAMU_GUARDED_BY(mutex_);
  std::deque<std::shared_ptr<Recipient>> ready_ TAMU_GUARDED_BY(mutex_);
  std::uint64_t posts_ TAMU_GUARDED_BY(mutex_) = 0;
  bool has_losses_ TAMU_GUARDED_BY(mutex_) = false;  // in a mailbox, not reported yet
  bool closed_ TAMU_GUARDED_BY(mutex_) = false;
};

}  // namespace ecu::tamu::com::mqtt
