#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <ecu/tamu/com/message.h>
#include <ecu/tamu/com/transport_client.h>

namespace ecu::tamu::com::mqtt {

/// What may wait for a broker that does not take messages as fast as they come. Beyond that only retained
/// messages are taken; each replaces an older one of its topic if one waits.
inline constexpr std::size_t max_queued_publications = 1024;
inline constexpr std::size_t max_queued_bytes = std::size_t{1024} * 1024;

/// A message on its way to the broker. Immutable, so that the queue and the store share it.
struct Publication {
  std::string topic;
  Message message;
};
using PublicationPtr = std::shared_ptr<const Publication>;

/// The publications that wait for the connection to take them, and the latest retained message of every
/// topic, which each new connection publishes again. Has no lock. What throws, for lack of memory, has at
/// most lost the message that it was called for.
class Outbox {
 public:
  /// Queues a message, or drops it as the result says. The first message that an outage or an overload costs
  /// is reported.
  PublishResult push(const std::string& topic, Message message);

  /// Queues every retained message, in the order of first publication.
  void connection_up();

  /// Throws away what waits.
  void connection_lost() noexcept;

  /// Queues a message that belongs to the present connection only, whatever its flags say.
  void announce(const std::string& topic, Message message);

  [[nodiscard]] bool connected() const noexcept { return connected_; }
  [[nodiscard]] std::size_t size() const noexcept { return queue_.size() + stalled_.size(); }
  /// Whether so much waits that only a retained message is taken. What waits for acknowledgements leaves room
  /// for what need not wait for them.
  [[nodiscard]] bool full(const std::string& topic, bool acknowledged) const;

  /// Whether there is a publication to send. While the connection takes none of quality of service 1, those
  /// let others pass, except others on the same topic.
  [[nodiscard]] bool has_next(bool takes_acknowledged) { return source(takes_acknowledged) != nullptr; }
  /// Takes the publication to send next; null when there is none.
  [[nodiscard]] PublicationPtr pop(bool takes_acknowledged);

 private:
  using Queue = std::deque<PublicationPtr>;

  void remember(PublicationPtr publication);
  [[nodiscard]] Queue* source(bool takes_acknowledged);
  void stall_front();
  [[nodiscard]] bool replace_retained(const PublicationPtr& publication);
  [[nodiscard]] std::size_t& bytes_of(const Queue& queue) noexcept {
    return &queue == &queue_ ? queued_bytes_ : stalled_bytes_;
  }
  void enqueue(PublicationPtr publication);
  PublishResult drop(PublishResult reason, const std::string& topic);

  std::vector<PublicationPtr> retained_;                // in the order of first publication
  std::unordered_map<std::string, std::size_t> index_;  // of retained_, by topic
  Queue queue_;
  Queue stalled_;  // older than queue_; its first awaited room for quality of service 1
  std::unordered_multiset<std::string> stalled_topics_;
  std::size_t queued_bytes_ = 0;   // of queue_
  std::size_t stalled_bytes_ = 0;  // of stalled_
  bool connected_ = false;
  bool drop_reported_ = false;  // since the connection was up and the queue empty
};

}  // namespace ecu::tamu::com::mqtt
