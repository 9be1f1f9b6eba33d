#include "mqtt/mqtt_settings.h"

#include <arpa/inet.h>

#include <charconv>
#include <cstring>

#include <ecu/tamu/com/topics.h>

namespace ecu::tamu::com::mqtt {

namespace {

int number_in(const std::string& text) {
  int number = 0;
  (void)std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

bool is_loopback_address(const std::string& text) {
  in_addr v4{};
  if (::inet_pton(AF_INET, text.c_str(), &v4) == 1) {
    return ntohl(v4.s_addr) >> IN_CLASSA_NSHIFT == IN_LOOPBACKNET;
  }
  in6_addr v6{};
  return ::inet_pton(AF_INET6, text.c_str(), &v6) == 1 &&
         std::memcmp(&v6, &in6addr_loopback, sizeof(v6)) == 0;
}

}  // namespace

bool MqttSettings::is_local() const {
  return is_unix_socket() || host == "localhost" || is_loopback_address(host);
}

std::string MqttSettings::broker() const {
  if (is_unix_socket()) {
    return host;
  }
  return host + ":" + std::to_string(port);
}

MqttSettings read_settings(const config::Configuration& config, const ClientTraits& traits) {
  MqttSettings settings;
  settings.client_id = config.get("client_name");
  settings.host = config.effective("host");
  if (!settings.is_unix_socket()) {
    settings.port = number_in(config.effective("port"));
  }
  settings.username = config.get("username");
  settings.password = config.get("password");
  settings.cafile = config.get("cafile");
  settings.certfile = config.get("certfile");
  settings.keyfile = config.get("keyfile");
  settings.keepalive = std::chrono::seconds(number_in(config.effective("keepalive")));
  settings.answer_timeout = settings.keepalive;
  settings.reconnect_spread = traits.reconnect_spread;
  settings.repeat_after = traits.repeat_after;
  settings.topic_cleared = traits.topic_cleared;
  settings.backlog = traits.backlog;
  settings.name = traits.name;
  settings.presence = traits.presence;
  if (!settings.presence && config.effective("presence") != "no") {
    settings.presence = {topics::presence_prefix + settings.client_id, topics::presence_online,
                         topics::presence_offline, topics::presence_offline};
  }
  return settings;
}

}  // namespace ecu::tamu::com::mqtt
