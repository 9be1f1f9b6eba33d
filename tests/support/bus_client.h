#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <ecu/tamu/com/message.h>

#include "support/process.h"

namespace tests {

/// A message that a client received.
struct BusMessage {
  std::string topic;
  std::string payload;
  int qos = 0;
  bool retained = false;
};

/// Another user of the bus. Its connection is lost with the broker's process: a new broker process needs a
/// new client.
class BusClient {
 public:
  using Predicate = std::function<bool(const BusMessage&)>;

  /// Connects, with a login when `user` is given; throws std::runtime_error when the broker refuses.
  explicit BusClient(int port, const std::string& id = "", const std::string& user = "",
                     const std::string& password = "");
  ~BusClient();

  void publish(const std::string& topic, std::string_view payload, bool retained = false, int qos = 0);
  void publish(const std::string& topic, const ecu::tamu::com::Payload& payload, bool retained = false,
               int qos = 0);

  /// Returns when the broker has confirmed the subscription.
  void subscribe(const std::string& filter, int qos = 1);

  /// The first message on `topic` that satisfies `wanted` and was not returned before.
  std::optional<BusMessage> wait_for(const std::string& topic, const Predicate& wanted = nullptr,
                                     std::chrono::milliseconds timeout = time_limit);
  /// Whether a message with this payload arrives.
  bool wait_for_text(const std::string& topic, std::string_view text);

  /// All received messages, in order.
  [[nodiscard]] std::vector<BusMessage> history() const;

 private:
  class Library;

  mutable std::mutex mutex_;  // guards all below but library_
  std::condition_variable changed_;
  std::optional<int> answer_;  // of the broker to the login; 0: accepted
  std::vector<int> subscribed_;
  std::vector<BusMessage> history_;
  std::vector<bool> returned_;  // of history_

  std::unique_ptr<Library> library_;  // its thread uses all of the above
};

}  // namespace tests
