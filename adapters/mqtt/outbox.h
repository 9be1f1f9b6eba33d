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

/// The limits for messages that wait for a slow broker. Beyond them only retained messages are queued; each
/// replaces a waiting message of its topic. A message that exceeds the second limit by itself is beyond them
/// until the connection has written the last one of its kind.
inline constexpr std::size_t max_queued_publications = 1024;
inline constexpr std::size_t max_queued_bytes = std::size_t{1024} * 1024;

/// The limits for messages that are handed to the connection at once. The last of them may exceed the second.
inline constexpr std::size_t max_batch = 32;
inline constexpr std::size_t max_batch_bytes = std::size_t{64} * 1024;

/// A message on its way to the broker. Immutable, so that the queue and the store share it.
struct Publication {
  std::string topic;
  Message message;
};
using PublicationPtr = std::shared_ptr<const Publication>;

/// The publications that wait for the connection to accept them, and the latest retained message of every
/// topic, which each new connection publishes again. Has no lock. A call that throws for lack of memory loses
/// at most its own message.
class Outbox {
 public:
  /// Queues a message, or drops it and returns the reason. Only the first drop of an outage or overload is
  /// logged.
  PublishResult push(const std::string& topic, Message message);

  /// Queues every retained message, in the order of first publication.
  void connection_up();

  /// Queues every retained message again.
  void repeat();

  /// Discards the queued publications. Does nothing while there is no connection.
  void connection_lost() noexcept;

  /// Forgets these retained messages, as far as each is still the newest of its topic: they are not published
  /// on the next connection.
  void forget(const std::vector<PublicationPtr>& publications);

  /// Queues a message that belongs to the present connection only, whatever its flags say.
  void announce(const std::string& topic, Message message);

  [[nodiscard]] bool connected() const noexcept { return connected_; }
  [[nodiscard]] std::size_t size() const noexcept { return queue_.size() + stalled_.size(); }
  /// Whether the limits are reached, so that the message is queued only if it is retained. Publications that
  /// wait for acknowledgements leave room for those that do not.
  [[nodiscard]] bool full(const std::string& topic, const Message& message) const;

  /// Whether there is a publication to send. While the connection accepts none of quality of service 1,
  /// others overtake these, except on the same topic.
  [[nodiscard]] bool has_next(bool takes_acknowledged) { return source(takes_acknowledged) != nullptr; }
  /// Takes the publication to send next; null when nothing can be sent.
  [[nodiscard]] PublicationPtr pop(bool takes_acknowledged);
  /// Appends to `batch` what is to be sent next: publications until it holds `most`, or has grown by
  /// `max_batch_bytes`; of quality of service 1, at most `most_acknowledged`.
  void pop_batch(std::size_t most, std::size_t most_acknowledged, std::vector<PublicationPtr>& batch);
  /// The connection has written everything that was taken.
  void batches_written() noexcept { large_is_unwritten_ = false; }

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
  std::size_t queued_bytes_ = 0;     // of queue_
  std::size_t stalled_bytes_ = 0;    // of stalled_
  bool large_is_unwritten_ = false;  // a batch had more than max_queued_bytes
  bool connected_ = false;
  bool drop_reported_ = false;  // since the connection was up and the queue empty
};

}  // namespace ecu::tamu::com::mqtt
