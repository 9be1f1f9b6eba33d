#include "mqtt/delivery.h"

#include <algorithm>
#include <exception>
#include <utility>

#include <ecu/tamu/com/topic.h>

#include "mqtt/mqtt_log.h"

namespace ecu::tamu::com::mqtt {

namespace {

void call(ISubscriptionObserver& observer, const Letter& letter) noexcept {
  try {
    observer.message(letter.topic, letter.message);
  } catch (const std::exception& failure) {
    mqtt_log.error("observer failed on topic ", letter.topic, ": ", failure.what());
  } catch (...) {
    mqtt_log.error("observer failed on topic ", letter.topic);
  }
}

}  // namespace

std::shared_ptr<Delivery::Recipient> Delivery::recipient_of(
    const std::shared_ptr<ISubscriptionObserver>& observer) {
  const auto found = std::find_if(recipients_.begin(), recipients_.end(), [&observer](const auto& recipient) {
    return recipient->mailbox.observer() == observer.get();
  });
  return found != recipients_.end() ? *found
                                    : recipients_.emplace_back(std::make_shared<Recipient>(observer));
}

bool Delivery::add(const std::string& topic, int max_qos,
                   const std::shared_ptr<ISubscriptionObserver>& observer) {
  const std::lock_guard lock(mutex_);
  auto route =
      std::find_if(routes_.begin(), routes_.end(), [&topic](const Route& r) { return r.filter == topic; });
  const bool is_new = route == routes_.end();
  if (is_new) {
    route = routes_.insert(routes_.end(), Route{topic, max_qos, {}});
  }
  const auto recipient = recipient_of(observer);
  if (recipient->mailbox.open(topic)) {
    route->recipients.push_back(recipient);
  }
  return std::exchange(route->max_qos, std::max(route->max_qos, max_qos)) < max_qos || is_new;
}

bool Delivery::remove(const std::string& topic, const ISubscriptionObserver* observer) {
  const std::lock_guard lock(mutex_);
  const auto is_observer = [observer](const auto& recipient) {
    return recipient->mailbox.observer() == observer;
  };
  const auto recipient = std::find_if(recipients_.begin(), recipients_.end(), is_observer);
  if (recipient == recipients_.end() || !(*recipient)->mailbox.close(topic)) {
    return false;
  }
  if ((*recipient)->mailbox.closed() && (*recipient)->current_topic.empty()) {
    recipients_.erase(recipient);
  }
  const auto route =
      std::find_if(routes_.begin(), routes_.end(), [&topic](const Route& r) { return r.filter == topic; });
  std::erase_if(route->recipients, is_observer);
  if (!route->recipients.empty()) {
    return false;
  }
  routes_.erase(route);
  return true;
}

void Delivery::wait_for(const std::string& topic, const ISubscriptionObserver* observer) {
  std::unique_lock lock(mutex_);
  call_ended_.wait(lock, [&] {
    return std::none_of(recipients_.begin(), recipients_.end(), [&](const auto& recipient) {
      return recipient->mailbox.observer() == observer && topic_matches(topic, recipient->current_topic) &&
             recipient->server != std::this_thread::get_id();
    });
  });
}

std::vector<Subscription> Delivery::subscriptions() const {
  const std::lock_guard lock(mutex_);
  std::vector<Subscription> wanted;
  wanted.reserve(routes_.size());
  for (const Route& route : routes_) {
    wanted.push_back({route.filter, route.max_qos});
  }
  return wanted;
}

void Delivery::post(const std::string& topic, Message message) {
  const std::lock_guard lock(mutex_);
  if (closed_) {
    return;
  }
  ++posts_;
  // Each recipient gets its message when the next one is found, so that the last one gets the original.
  const std::shared_ptr<Recipient>* found = nullptr;
  const std::string* found_by = nullptr;
  for (const Route& route : routes_) {
    if (!topic_matches(route.filter, topic)) {
      continue;
    }
    for (const auto& recipient : route.recipients) {
      if (std::exchange(recipient->last_post, posts_) == posts_) {
        continue;
      }
      if (found != nullptr) {
        hand(*found, *found_by, {topic, message, posts_});
      }
      found = &recipient;
      found_by = &route.filter;
    }
  }
  if (found != nullptr) {
    hand(*found, *found_by, {topic, std::move(message), posts_});
  }
}

void Delivery::hand(const std::shared_ptr<Recipient>& recipient, const std::string& filter, Letter letter) {
  recipient->mailbox.put(filter, std::move(letter));
  if (!std::exchange(recipient->scheduled, true)) {
    ready_.push_back(recipient);
  }
}

std::uint64_t Delivery::posted() const {
  const std::lock_guard lock(mutex_);
  return posts_;
}

bool Delivery::delivered(std::uint64_t count) const {
  const std::lock_guard lock(mutex_);
  return std::none_of(recipients_.begin(), recipients_.end(), [count](const auto& recipient) {
    const bool in_call = !recipient->current_topic.empty() && recipient->current_post <= count;
    return in_call || recipient->mailbox.holds_up_to(count);
  });
}

bool Delivery::pending() const {
  const std::lock_guard lock(mutex_);
  return !ready_.empty();
}

bool Delivery::deliver_next() {
  std::unique_lock lock(mutex_);
  if (ready_.empty()) {
    return false;
  }
  const std::shared_ptr<Recipient> recipient = std::move(ready_.front());
  ready_.pop_front();
  serve(*recipient, lock);
  recipient->scheduled = false;
  if (recipient->mailbox.closed()) {
    std::erase(recipients_, recipient);
  }
  return true;
}

bool Delivery::is_calling_here() const {
  const std::lock_guard lock(mutex_);
  return std::any_of(recipients_.begin(), recipients_.end(), [](const auto& recipient) {
    return recipient->server == std::this_thread::get_id() && !recipient->current_topic.empty();
  });
}

void Delivery::serve(Recipient& recipient, std::unique_lock<std::mutex>& lock) {
  recipient.server = std::this_thread::get_id();
  while (auto letter = recipient.mailbox.take()) {
    recipient.current_topic = letter->topic;
    recipient.current_post = letter->number;
    const std::optional<Loss> loss = recipient.mailbox.take_loss();
    lock.unlock();
    if (loss) {
      mqtt_log.warning("observer too slow: ", loss->count, " messages dropped on topic ", loss->filter);
      on_loss_(*loss);
    }
    call(*recipient.mailbox.observer(), *letter);
    lock.lock();
    recipient.current_topic.clear();
    call_ended_.notify_all();
  }
  recipient.server = {};
}

void Delivery::close() {
  const std::lock_guard lock(mutex_);
  closed_ = true;
  ready_.clear();
  for (const auto& recipient : recipients_) {
    recipient->mailbox.clear();
  }
}

}  // namespace ecu::tamu::com::mqtt
