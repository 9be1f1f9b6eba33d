#pragma once

#include <chrono>
#include <string>

#include <ecu/tamu/com/message.h>

#include "mqtt/mqtt_settings.h"

namespace tests {

inline ecu::tamu::com::Message text_message(const std::string& text, bool acknowledged = false,
                                            bool retained = false) {
  ecu::tamu::com::Message message = ecu::tamu::com::make_message(0, {text.begin(), text.end()});
  message.acknowledged = acknowledged;
  message.retained = retained;
  return message;
}

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

}  // namespace tests
