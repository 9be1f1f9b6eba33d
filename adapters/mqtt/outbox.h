#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include <ecu/tamu/com/message.h>
#include <ecu/tamu/com/transport_client.h>

namespace ecu::tamu::com::mqtt {

/// What may wait for a broker that does not take messages as fast as they come. Past that only retained
/// messages are taken, in the place of an older one of their topic where one waits.
inline constexpr std::size_t max_queued_publications = 1024;
inline constexpr std::size_t max_queued_bytes = std::size_t{1024} * 1024;

/// A message on its way to the broker.
struct Publication {
  std::string topic;
  Message message;
};

/// The publications that wait for the connection to take them, and the latest retained message of every
/// topic, which each new connection publishes again. Has no lock.
class Outbox {
 public:
  /// Queues a message, or drops it as the result says. The first message that an outage or an overload costs
  /// is reported.
  PublishResult push(const std::string& topic, Message message);

  /// Queues every retained message, in the order of first publication.
  void connection_up();

  /// Throws away what waits.
  void connection_lost();

  /// Queues a message that belongs to the present connection only, whatever its flags say.
  void announce(const std::string& topic, Message message) { enqueue(topic, std::move(message)); }

  [[nodiscard]] bool connected() const noexcept { return connected_; }
  [[nodiscard]] std::size_t size() const noexcept { return queue_.size(); }
  /// Whether so much waits that only retained messages are taken.
  [[nodiscard]] bool full() const noexcept;

  /// The publication to send next, which stays queued; null when there is none.
  [[nodiscard]] const Publication* front() const noexcept {
    return queue_.empty() ? nullptr : &queue_.front();
  }
  /// Takes the publication to send next. There must be one.
  [[nodiscard]] Publication pop();

 private:
  void remember(const std::string& topic, const Message& message);
  PublishResult push_to_full_queue(const std::string& topic, Message message);
  void enqueue(const std::string& topic, Message message);
  PublishResult drop(PublishResult reason, const std::string& topic);

  std::vector<Publication> retained_;                   // in the order of first publication
  std::unordered_map<std::string, std::size_t> index_;  // of retained_, by topic
  std::deque<Publication> queue_;
  std::size_t queued_bytes_ = 0;
  bool connected_ = false;
  bool drop_reported_ = false;  // since the connection was up and the queue empty
};

}  // namespace ecu::tamu::com::mqtt
