#pragma once

#include <mosquittopp.h>

#include <cstddef>
#include <optional>
#include <string>

#include "mqtt/connection_listener.h"
#include "mqtt/pending_answers.h"

namespace ecu::tamu::com::mqtt {

/// The library's object of a session. Its callbacks run inside the library's calls, under its locks: they
/// take down what happened, tell the listener, and call nothing of the library.
class MqttLibrary final : public mosqpp::mosquittopp {
 public:
  /// `listener` must outlive it. An empty identifier leaves the choice to the library.
  MqttLibrary(const std::string& client_id, ConnectionListener& listener);

  /// The owner adds what it sends.
  [[nodiscard]] PendingAnswers& pending() noexcept { return pending_; }
  [[nodiscard]] const PendingAnswers& pending() const noexcept { return pending_; }

  /// How often there was a callback, mostly for a packet.
  [[nodiscard]] unsigned received() const noexcept { return received_; }
  [[nodiscard]] unsigned messages() const noexcept { return messages_; }
  /// Those of the messages that the library has to answer.
  [[nodiscard]] unsigned acknowledged() const noexcept { return acknowledged_; }
  /// Of the messages' payloads.
  [[nodiscard]] std::size_t bytes() const noexcept { return bytes_; }
  /// Whether the broker has accepted the connection.
  [[nodiscard]] bool accepted() const noexcept { return accepted_; }
  /// The code of a CONNACK packet that refuses the connection; 0 without one (MQTT 3.1.1, 3.2.2.3).
  [[nodiscard]] int refusal() const noexcept { return refusal_; }
  /// What the library logged last about an error; empty when it did not.
  [[nodiscard]] const std::string& last_error() const noexcept { return last_error_; }
  /// Why a callback failed, after which the session misses what the packet said; null when none did.
  [[nodiscard]] const char* callback_failure() const noexcept { return callback_failure_; }

 private:
  template <class Action>
  void guard(Action action) noexcept;

  void on_connect(int code) override;
  void on_message(const mosquitto_message* message) override;
  void on_subscribe(int mid, int count, const int* granted) override;
  void on_unsubscribe(int mid) override;
  void on_publish(int mid) override;
  void on_log(int level, const char* text) override;

  ConnectionListener& listener_;
  PendingAnswers pending_;
  unsigned received_ = 0;
  unsigned messages_ = 0;
  unsigned acknowledged_ = 0;
  std::size_t bytes_ = 0;
  bool accepted_ = false;
  int refusal_ = 0;
  std::string last_error_;
  const char* callback_failure_ = nullptr;
};

}  // namespace ecu::tamu::com::mqtt
