#pragma once

#include <mosquittopp.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "mqtt/mqtt_session.h"

namespace ecu::tamu::com::mqtt {

/// The library's object of a session. Its callbacks run inside the library's calls, under its locks: they
/// take down what happened, tell the session's listener, and call nothing of the library.
class MqttLibrary final : public mosqpp::mosquittopp {
 public:
  /// `listener` must outlive it. An empty identifier leaves the choice to the library.
  MqttLibrary(const std::string& client_id, MqttSession::Listener& listener);

  void expect_acknowledgement(int mid) { unacknowledged_.push_back(mid); }
  void expect_echo(int mid) noexcept { echo_ = mid; }
  void expect_subscription(int mid, const std::string& filter) { subscribing_[mid] = filter; }
  [[nodiscard]] std::size_t unacknowledged() const noexcept { return unacknowledged_.size(); }

  /// How often there was a callback, mostly for a packet.
  [[nodiscard]] unsigned received() const noexcept { return received_; }
  [[nodiscard]] unsigned messages() const noexcept { return messages_; }
  /// Those of the messages that the library has to answer.
  [[nodiscard]] unsigned acknowledged() const noexcept { return acknowledged_; }
  /// Of the messages' payloads.
  [[nodiscard]] std::size_t bytes() const noexcept { return bytes_; }
  /// Whether the broker has let the client in, or has refused to.
  [[nodiscard]] bool accepted() const noexcept { return accepted_; }
  [[nodiscard]] bool refused() const noexcept { return !refusal_.empty(); }

  /// The most telling account of a failure that the library gave a general name.
  [[nodiscard]] std::string explain(const std::string& general) const;

 private:
  template <class Action>
  void guard(Action action) noexcept;

  void on_connect(int code) override;
  void on_message(const mosquitto_message* message) override;
  void on_subscribe(int mid, int count, const int* granted) override;
  void on_unsubscribe(int mid) override;
  void on_publish(int mid) override;
  void on_log(int level, const char* text) override;

  MqttSession::Listener& listener_;
  std::vector<int> unacknowledged_;
  std::map<int, std::string> subscribing_;
  int echo_ = 0;
  unsigned received_ = 0;
  unsigned messages_ = 0;
  unsigned acknowledged_ = 0;
  std::size_t bytes_ = 0;
  bool accepted_ = false;
  std::string refusal_;     // what the broker answered to the login
  std::string last_error_;  // what the library wrote last about an error
};

}  // namespace ecu::tamu::com::mqtt
