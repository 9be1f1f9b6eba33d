#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <ecu/tamu/com/message.h>
#include <ecu/tamu/com/transport_client.h>

#include "mqtt/mailbox.h"

namespace ecu::tamu::com::mqtt {

/// A topic filter to ask the broker for.
struct Subscription {
  std::string filter;
  int max_qos = 0;
};

/// Brings messages to the observers that are subscribed to their topics. Every operation may be called from
/// any thread. Messages are posted by the network and delivered by whichever threads call `deliver_next`:
/// several observers may be called at once, one observer never.
class Delivery {
 public:
  /// `on_loss` is called, by whichever thread delivers, for messages that an observer was too slow for.
  explicit Delivery(std::function<void(const Loss&)> on_loss = [](const Loss&) {})
      : on_loss_(std::move(on_loss)) {}

  /// True when the broker has to be asked for `topic`: it is new, or wanted at a higher quality of service.
  bool add(const std::string& topic, int max_qos, const std::shared_ptr<ISubscriptionObserver>& observer);

  /// Ends the registration and throws away what waits for it. True when nobody else wants `topic`. The
  /// observer may still be in a call: `wait_for` waits for its end.
  bool remove(const std::string& topic, const ISubscriptionObserver* observer);

  /// Returns when `observer` is not being called for `topic`, at once when called from inside that call.
  void wait_for(const std::string& topic, const ISubscriptionObserver* observer);

  /// What to ask the broker for: each filter once, in the order of first registration.
  [[nodiscard]] std::vector<Subscription> subscriptions() const;

  /// Queues a message for every observer whose subscription matches, once for each.
  void post(const std::string& topic, Message message);

  /// How many messages have been posted.
  [[nodiscard]] std::uint64_t posted() const;

  /// Whether no call for one of the first `count` posted messages is under way or still to come.
  [[nodiscard]] bool delivered(std::uint64_t count) const;

  /// Whether an observer has messages and nobody delivers them.
  [[nodiscard]] bool pending() const;

  /// Brings one observer all that waits for it. False when there was nothing to do.
  bool deliver_next();

  /// Whether the calling thread is inside an observer's call.
  [[nodiscard]] bool is_calling_here() const;

  /// Throws away what waits; from then on nothing is queued. Calls that are under way go on.
  void close();

 private:
  struct Recipient {
    explicit Recipient(std::shared_ptr<ISubscriptionObserver> observer) : mailbox(std::move(observer)) {}

    Mailbox mailbox;
    bool scheduled = false;       // waits in ready_, or is being served
    std::uint64_t last_post = 0;  // number of the message that was posted to it last
    std::thread::id server;       // the thread that calls the observer
    std::string current_topic;    // what it is called for; empty between calls
    std::uint64_t current_post = 0;
  };
  struct Route {
    std::string filter;
    int max_qos = 0;
    std::vector<std::shared_ptr<Recipient>> recipients;
  };

  std::shared_ptr<Recipient> recipient_of(const std::shared_ptr<ISubscriptionObserver>& observer);
  void hand(const std::shared_ptr<Recipient>& recipient, const std::string& filter, Letter letter);
  void serve(Recipient& recipient, std::unique_lock<std::mutex>& lock);

  const std::function<void(const Loss&)> on_loss_;
  mutable std::mutex mutex_;  // guards all below; never held while an observer is called
  std::vector<Route> routes_;
  std::vector<std::shared_ptr<Recipient>> recipients_;
  std::deque<std::shared_ptr<Recipient>> ready_;
  std::uint64_t posts_ = 0;
  bool closed_ = false;
  std::condition_variable call_ended_;
};

}  // namespace ecu::tamu::com::mqtt
