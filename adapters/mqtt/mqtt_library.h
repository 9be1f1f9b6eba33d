#pragma once

#include <mosquittopp.h>

#include <cstddef>
#include <optional>
#include <string>

#include "mqtt/connection_listener.h"
#include "mqtt/pending_answers.h"

namespace ecu::tamu::com::mqtt {

/// The library's object of a session. Its callbacks run inside the library's calls, under its locks: they
/// record what happened, call the listener, and never call the library.
class MqttLibrary final : public mosqpp::mosquittopp {
 public:
  /// `listener` must outlive it. An empty identifier leaves the choice to the library.
  MqttLibrary(const std::string& client_id, ConnectionListener& listener);

  /// The requests that the broker must still answer. The owner adds what it sends.
  [[nodiscard]] PendingAnswers& pending() noexcept { return pending_; }
  [[nodiscard]] const PendingAnswers& pending() const noexcept { return pending_; }

  /// The number of callbacks, most of which report a packet.
  [[nodiscard]] unsigned received() const noexcept { return received_; }
  /// The number of messages that the library must acknowledge.
  [[nodiscard]] unsigned acknowledged() const noexcept { return acknowledged_; }
  /// The total size of the messages' payloads.
  [[nodiscard]] std::size_t bytes() const noexcept { return bytes_; }
  /// Whether the broker has accepted the connection.
  [[nodiscard]] bool accepted() const noexcept { return accepted_; }
  /// The code of a CONNACK packet that refuses the connection; 0 without one (MQTT 3.1.1, 3.2.2.3).
  [[nodiscard]] int refusal() const noexcept { return refusal_; }
  /// The last error that the library logged; empty when it logged none.
  [[nodiscard]] const std::string& last_error() const noexcept { return last_error_; }
  /// Why a callback failed, so that the session has lost the contents of a packet; null when no callback has
  /// failed.
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
  unsigned acknowledged_ = 0;
  std::size_t bytes_ = 0;
  bool accepted_ = false;
  int refusal_ = 0;
  std::string last_error_;
  const char* callback_failure_ = nullptr;
};

}  // namespace ecu::tamu::com::mqtt
