#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <ecu/tamu/com/message.h>
#include <ecu/tamu/com/transport_client.h>

namespace ecu::tamu::com::mqtt {

/// What may wait for one observer on one of its topics.
inline constexpr std::size_t max_waiting_messages = 256;
inline constexpr std::size_t max_waiting_bytes = std::size_t{1024} * 1024;

/// A message on its way to an observer.
struct Letter {
  std::string topic;
  Message message;
  std::uint64_t number;  // in the order of arrival
};

/// Messages on a subscribed topic that were dropped because its room was full.
struct Loss {
  std::string filter;
  std::uint64_t count;
};

/// The messages that wait for one observer, in the order of arrival over all its topics. Each subscribed
/// topic has room of its own: when that is full its oldest message is dropped, never another topic's. Has no
/// lock.
class Mailbox {
 public:
  explicit Mailbox(std::shared_ptr<ISubscriptionObserver> observer) : observer_(std::move(observer)) {}

  [[nodiscard]] ISubscriptionObserver* observer() const noexcept { return observer_.get(); }

  /// Makes room for a subscribed topic; false when it has some already.
  bool open(const std::string& filter);
  /// Throws away what waits on a subscribed topic, and its room; false when it had none.
  bool close(const std::string& filter);
  /// Whether no topic is left.
  [[nodiscard]] bool closed() const noexcept { return slots_.empty(); }

  /// Puts a message that arrived on a subscribed topic at the end.
  void put(const std::string& filter, Letter letter);

  /// The message that has waited longest; nothing when none waits.
  [[nodiscard]] std::optional<Letter> take();

  /// What was dropped and has not been told yet, of one topic; nothing when there is none.
  [[nodiscard]] std::optional<Loss> take_loss();

  /// Whether a message waits whose number is not above `number`.
  [[nodiscard]] bool holds_up_to(std::uint64_t number) const noexcept;

  void clear() noexcept;

 private:
  struct Slot {
    std::string filter;
    std::deque<Letter> waiting;
    std::size_t bytes = 0;
    std::uint64_t dropped = 0;
  };

  [[nodiscard]] Slot* find(const std::string& filter);
  static void drop_oldest(Slot& slot);

  std::shared_ptr<ISubscriptionObserver> observer_;
  std::vector<Slot> slots_;
};

}  // namespace ecu::tamu::com::mqtt
