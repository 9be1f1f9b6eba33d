#pragma once

#include <mosquittopp.h>

#include <chrono>
#include <string>

#include <ecu/tamu/com/message.h>

namespace bench {

/// Both ends of a message's path: publishes requests and receives the last result of each.
class Probe final : public mosqpp::mosquittopp {
 public:
  /// Connects to the broker. A `host` that begins with "/" is the path of its socket.
  Probe(const std::string& host, int port, int results);

  /// Returns when the program in the middle answers. Throws std::runtime_error when it does not.
  void wait_for_answer();
  /// The time in microseconds from the publication of a request to the arrival of its last result.
  [[nodiscard]] double round_trip();
  /// Publishes `count` requests as fast as the last results arrive.
  void stream(int count);

  void on_connect(int code) override;
  void on_message(const mosquitto_message* message) override;

 private:
  void send_request();
  [[nodiscard]] bool wait_for(int results, std::chrono::milliseconds limit);

  int results_;
  ecu::tamu::com::Payload request_;
  int sent_ = 0;
  int received_ = 0;
};

}  // namespace bench
