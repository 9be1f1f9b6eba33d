#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <ecu/tamu/com/message.h>
#include <ecu/tamu/com/transport_client.h>

#include "mqtt/loss_log.h"

namespace ecu::tamu::com::mqtt {

/// The limits for messages that wait for one observer on one of its topics.
inline constexpr std::size_t max_waiting_messages = 256;
inline constexpr std::size_t max_waiting_bytes = std::size_t{1024} * 1024;

/// A message on its way to the observers, who share it.
struct QueuedMessage {
  std::string topic;
  Message message;
  std::uint64_t number;  // in the order of arrival
};

/// The messages that wait for one observer, in the order of arrival over all its topics. Each subscribed
/// topic has a bounded queue of its own: when it is full, its oldest message is dropped, never another
/// topic's. Has no lock. An operation that throws std::bad_alloc changes nothing.
class Mailbox {
 public:
  /// The limits apply `backlog` times.
  explicit Mailbox(std::shared_ptr<ISubscriptionObserver> observer, std::size_t backlog = 1)
      : observer_(std::move(observer)), backlog_(backlog) {}

  [[nodiscard]] ISubscriptionObserver* observer() const noexcept { return observer_.get(); }

  /// Creates the queue of a subscribed topic; false when it exists already.
  bool add_topic(const std::string& filter);
  /// Removes the queue of a subscribed topic and its messages; false when there is no such queue.
  bool remove_topic(const std::string& filter);
  [[nodiscard]] bool has_topics() const noexcept { return !queues_.empty(); }

  /// Appends a message that arrived on a subscribed topic, and returns whether nothing had to be dropped for
  /// the limits. A message that exceeds the limit of a queue is itself dropped.
  [[nodiscard]] bool put(const std::string& filter, std::shared_ptr<const QueuedMessage> message);

  /// Counts a message that arrived on a subscribed topic as dropped because it is too large.
  void drop(const std::string& filter) noexcept;

  /// Removes the message that has waited longest; null when the mailbox is empty.
  [[nodiscard]] std::shared_ptr<const QueuedMessage> take() noexcept;

  /// Takes the number of messages dropped from one topic; nothing when there were no losses.
  [[nodiscard]] std::optional<Loss> take_loss();

  /// Whether a message with at most this number waits.
  [[nodiscard]] bool holds_up_to(std::uint64_t number) const noexcept;

  /// Discards the messages, but keeps the counts of dropped ones.
  void clear() noexcept;

 private:
  struct TopicQueue {
    std::string filter;
    std::deque<std::shared_ptr<const QueuedMessage>> waiting;
    std::size_t bytes = 0;
    std::uint64_t dropped = 0;
    std::uint64_t too_large = 0;  // of these
  };

  [[nodiscard]] TopicQueue* find(const std::string& filter) noexcept;
  static std::shared_ptr<const QueuedMessage> take_oldest(TopicQueue& queue) noexcept;

  std::shared_ptr<ISubscriptionObserver> observer_;
  std::size_t backlog_;
  std::vector<TopicQueue> queues_;
};

}  // namespace ecu::tamu::com::mqtt
