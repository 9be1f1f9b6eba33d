#include "com/mqtt_settings.h"

#include <charconv>

namespace ecu::tamu::com {

namespace {

constexpr const char* default_host = "localhost";
constexpr int default_port = 1883;
constexpr int default_keepalive = 60;

int number_or(const std::string& text, int fallback) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? number : fallback;
}

}  // namespace

std::string MqttSettings::broker() const {
  return is_unix_socket() ? host : host + ":" + std::to_string(port);
}

MqttSettings read_settings(const config::Configuration& config) {
  MqttSettings settings;
  settings.client_id = config.get("client_name");
  settings.host = config.get("host");
  if (settings.host.empty()) {
    settings.host = default_host;
  }
  settings.port = settings.is_unix_socket() ? 0 : number_or(config.get("port"), default_port);
  settings.username = config.get("username");
  settings.password = config.get("password");
  settings.cafile = config.get("cafile");
  settings.certfile = config.get("certfile");
  settings.keyfile = config.get("keyfile");
  settings.keepalive = std::chrono::seconds(number_or(config.get("keepalive"), default_keepalive));
  settings.presence = config.get("presence") != "no";
  return settings;
}

}  // namespace ecu::tamu::com
