#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "mqtt/connection_listener.h"
#include "mqtt/mqtt_settings.h"
#include "support/rt_messages.h"

namespace tests {

inline ecu::tamu::com::mqtt::MqttSettings settings_for(const std::string& host, int port = 0) {
  ecu::tamu::com::mqtt::MqttSettings settings;
  settings.client_id = "tested";
  settings.host = host;
  settings.port = port;
  settings.keepalive = std::chrono::seconds(60);
  return settings;
}

/// The default one of the client with this identifier.
inline ecu::tamu::com::Presence presence_of(const std::string& client_id) {
  return {"system/presence/" + client_id, "online", "offline", "offline"};
}

/// Records the events but the grant of a subscription, then calls the test's function, which may throw.
class EventLog final : public ecu::tamu::com::mqtt::ConnectionListener {
 public:
  void connection_up() override { happened("up"); }
  void connection_down(ecu::tamu::com::ConnectionFailure failure, const std::string& reason) override {
    down = failure;
    events.push_back("down: " + reason);
  }
  void message(const std::string& topic, ecu::tamu::com::Message /*message*/) override { happened(topic); }
  void oversized_message(const std::string& topic) override { happened(topic); }
  void subscription_refused(const std::string& filter) override { happened("refused " + filter); }
  void subscription_granted(const std::string& /*filter*/) override {}
  void fence_answered(ecu::tamu::com::mqtt::Fence /*fence*/) override { happened("fence"); }
  void acknowledged_late() override { happened("late"); }

  std::vector<std::string> events;
  ecu::tamu::com::ConnectionFailure down = ecu::tamu::com::ConnectionFailure::refused;
  std::function<void(const std::string& event)> on_event = [](const std::string&) {};

 private:
  void happened(const std::string& event) {
    events.push_back(event);
    on_event(event);
  }
};

}  // namespace tests
