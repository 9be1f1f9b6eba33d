// Each observer is one recipient with one mailbox, however many topics it is subscribed to. A recipient with
// waiting messages is scheduled: either ready_ holds it once, or one thread serves it, which takes message
// after message and calls the observer without the lock. No other thread serves it meanwhile, so the
// observer's calls come one after another and in order.
//
// It relies on `scheduled` being true exactly while the recipient is in ready_ or is being served. If it
// stayed true after a failed allocation, the observer would never be called again. A recipient is therefore
// scheduled before its message is queued, and serving one allocates nothing that it depends on.

#include "mqtt/delivery.h"

#include <algorithm>
#include <exception>
#include <new>
#include <optional>
#include <utility>

#include <ecu/tamu/com/topic.h>

#include "mqtt/mqtt_log.h"
#include "system/free_memory.h"

namespace ecu::tamu::com::mqtt {

namespace {

void call(ISubscriptionObserver& observer, const QueuedMessage& message) noexcept {
  try {
    observer.message(message.topic, message.message);
  } catch (const std::exception& failure) {
    mqtt_log.error("observer failed on topic ", message.topic, ": ", failure.what());
  } catch (...) {
    mqtt_log.error("observer failed on topic ", message.topic);
  }
}

}  // namespace

// Looking for wildcards in every filter takes longer than all comparisons.
bool Delivery::Route::matches(const std::string& topic) const {
  return has_wildcard ? topic_matches(filter, topic) : filter == topic;
}

Delivery::Route* Delivery::find_route(const std::string& topic) {
  const auto found = std::find_if(routes_.begin(), routes_.end(),
                                  [&topic](const Route& route) { return route.filter == topic; });
  return found == routes_.end() ? nullptr : &*found;
}

std::shared_ptr<Delivery::Recipient> Delivery::recipient_of(
    const std::shared_ptr<ISubscriptionObserver>& observer) {
  const auto found = std::find_if(recipients_.begin(), recipients_.end(), [&observer](const auto& recipient) {
    return recipient->mailbox.observer() == observer.get();
  });
  if (found != recipients_.end()) {
    return *found;
  }
  return recipients_.emplace_back(std::make_shared<Recipient>(observer, backlog_));
}

bool Delivery::add(const std::string& topic, int max_qos,
                   const std::shared_ptr<ISubscriptionObserver>& observer) {
  const MutexLock lock(mutex_);
  const auto recipient = recipient_of(observer);
  Route* const route = find_route(topic);
  if (route == nullptr) {
    Route created{.filter = topic,
                  .has_wildcard = topic.find_first_of("+#") != std::string::npos,
                  .max_qos = max_qos,
                  .recipients = {recipient}};
    routes_.reserve(routes_.size() + 1);
    recipient->mailbox.add_topic(topic);
    routes_.push_back(std::move(created));
    return true;
  }
  route->recipients.reserve(route->recipients.size() + 1);
  if (recipient->mailbox.add_topic(topic)) {
    route->recipients.push_back(recipient);
  }
  return std::exchange(route->max_qos, std::max(route->max_qos, max_qos)) < max_qos;
}

bool Delivery::remove(const std::string& topic, const ISubscriptionObserver* observer) {
  const MutexLock lock(mutex_);
  const auto is_observer = [observer](const auto& recipient) {
    return recipient->mailbox.observer() == observer;
  };
  const auto recipient = std::find_if(recipients_.begin(), recipients_.end(), is_observer);
  if (recipient == recipients_.end() || !(*recipient)->mailbox.remove_topic(topic)) {
    return false;
  }
  if (!(*recipient)->mailbox.has_topics() && !(*recipient)->current) {
    recipients_.erase(recipient);
  }
  std::erase_if(find_route(topic)->recipients, is_observer);
  return std::erase_if(routes_, [](const Route& route) { return route.recipients.empty(); }) > 0;
}

void Delivery::wait_for(const std::string& topic, const ISubscriptionObserver* observer) {
  MutexLock lock(mutex_);
  call_ended_.wait(lock, [&]() TAMU_REQUIRES(mutex_) {
    return std::none_of(recipients_.begin(), recipients_.end(), [&](const auto& recipient) {
      return recipient->mailbox.observer() == observer && recipient->current &&
             topic_matches(topic, recipient->current->topic) &&
             recipient->server != std::this_thread::get_id();
    });
  });
}

std::vector<Subscription> Delivery::subscriptions() const {
  const MutexLock lock(mutex_);
  std::vector<Subscription> wanted;
  wanted.reserve(routes_.size());
  for (const Route& route : routes_) {
    wanted.push_back({route.filter, route.max_qos});
  }
  return wanted;
}

// Calls `action` once for each recipient of a new message.
template <class Action>
void Delivery::for_each_recipient(const std::string& topic, Action action) {
  if (closed_) {
    return;
  }
  ++posts_;
  for (const Route& route : routes_) {
    if (!route.matches(topic)) {
      continue;
    }
    for (const auto& recipient : route.recipients) {
      if (std::exchange(recipient->last_post, posts_) != posts_) {
        action(recipient, route.filter);
      }
    }
  }
}

void Delivery::post(const std::string& topic, Message message) {
  const MutexLock lock(mutex_);
  std::shared_ptr<const QueuedMessage> queued;
  for_each_recipient(topic, [&](const auto& recipient, const std::string& filter) TAMU_REQUIRES(mutex_) {
    if (!queued) {
      // NOLINTNEXTLINE(bugprone-use-after-move): only once, as `queued` is set then
      queued = std::make_shared<const QueuedMessage>(QueuedMessage{topic, std::move(message), posts_});
    }
    queue(recipient, filter, queued);
  });
}

void Delivery::drop(const std::string& topic) {
  const MutexLock lock(mutex_);
  for_each_recipient(topic, [&](const auto& recipient, const std::string& filter) TAMU_REQUIRES(mutex_) {
    recipient->mailbox.drop(filter);
    has_losses_ = true;
  });
}

void Delivery::queue(const std::shared_ptr<Recipient>& recipient, const std::string& filter,
                     const std::shared_ptr<const QueuedMessage>& message) {
  if (!recipient->scheduled) {
    ready_.push_back(recipient);
    recipient->scheduled = true;
  }
  has_losses_ = !recipient->mailbox.put(filter, message) || has_losses_;
}

std::uint64_t Delivery::posted() const {
  const MutexLock lock(mutex_);
  return posts_;
}

bool Delivery::delivered(std::uint64_t count) const {
  const MutexLock lock(mutex_);
  return std::none_of(recipients_.begin(), recipients_.end(), [count](const auto& recipient) {
    const bool in_call = recipient->current && recipient->current->number <= count;
    return in_call || recipient->mailbox.holds_up_to(count);
  });
}

bool Delivery::pending() const {
  const MutexLock lock(mutex_);
  return !ready_.empty();
}

bool Delivery::deliver_next() {
  std::shared_ptr<Recipient> recipient;  // may hold the last reference to the observer
  std::size_t delivered_bytes = 0;
  {
    MutexLock lock(mutex_);
    if (ready_.empty()) {
      return false;
    }
    recipient = std::move(ready_.front());
    ready_.pop_front();
    delivered_bytes = serve(*recipient, lock);
    recipient->scheduled = false;
    if (!recipient->mailbox.has_topics()) {
      std::erase(recipients_, recipient);
    }
  }
  release_free_memory(delivered_bytes);
  return true;
}

// Returns the bytes that it delivered. Releases the lock of its caller during the calls. The analysis cannot
// know that the lock is that of mutex_.
std::size_t Delivery::serve(Recipient& recipient, MutexLock& lock) noexcept TAMU_NO_THREAD_SAFETY_ANALYSIS {
  std::size_t delivered_bytes = 0;
  recipient.server = std::this_thread::get_id();
  while ((recipient.current = recipient.mailbox.take())) {
    delivered_bytes += recipient.current->message.payload.size();
    lock.unlock();
    call(*recipient.mailbox.observer(), *recipient.current);
    lock.lock();
    recipient.current.reset();
    call_ended_.notify_all();
  }
  recipient.server = {};
  return delivered_bytes;
}

void Delivery::report_losses() {
  report_all();
  loss_log_.log_due();
}

// If there is no memory for its text, a loss stays counted and is reported later.
std::optional<Loss> Delivery::take_loss() noexcept {
  const MutexLock lock(mutex_);
  if (!has_losses_) {
    return std::nullopt;
  }
  try {
    for (const auto& recipient : recipients_) {
      if (auto loss = recipient->mailbox.take_loss()) {
        return loss;
      }
    }
    has_losses_ = false;
  } catch (const std::bad_alloc&) {
  }
  return std::nullopt;
}

void Delivery::report_all() noexcept {
  while (const auto loss = take_loss()) {
    try {
      loss_log_.add(*loss);
      on_loss_(*loss);
    } catch (const std::exception& failure) {
      mqtt_log.error(loss->count, " messages dropped on topic ", loss->filter,
                     ", not reported: ", failure.what());
    }
  }
}

bool Delivery::is_calling_here() const {
  const MutexLock lock(mutex_);
  return std::any_of(recipients_.begin(), recipients_.end(), [](const auto& recipient) {
    return recipient->server == std::this_thread::get_id() && recipient->current;
  });
}

void Delivery::close() {
  {
    const MutexLock lock(mutex_);
    closed_ = true;
    ready_.clear();
    for (const auto& recipient : recipients_) {
      recipient->mailbox.clear();
    }
  }
  report_all();
  loss_log_.log_all();
}

}  // namespace ecu::tamu::com::mqtt
