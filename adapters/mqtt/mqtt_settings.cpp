#include "mqtt/mqtt_settings.h"

#include <charconv>

namespace ecu::tamu::com::mqtt {

namespace {

int number_in(const std::string& text) {
  int number = 0;
  (void)std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

}  // namespace

std::string MqttSettings::broker() const {
  return is_unix_socket() ? host : host + ":" + std::to_string(port);
}

MqttSettings read_settings(const config::Configuration& config) {
  MqttSettings settings;
  settings.client_id = config.get("client_name");
  settings.host = config.effective("host");
  settings.port = settings.is_unix_socket() ? 0 : number_in(config.effective("port"));
  settings.username = config.get("username");
  settings.password = config.get("password");
  settings.cafile = config.get("cafile");
  settings.certfile = config.get("certfile");
  settings.keyfile = config.get("keyfile");
  settings.keepalive = std::chrono::seconds(number_in(config.effective("keepalive")));
  settings.presence = config.effective("presence") != "no";
  return settings;
}

}  // namespace ecu::tamu::com::mqtt
