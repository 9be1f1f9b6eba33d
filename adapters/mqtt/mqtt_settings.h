#pragma once

#include <chrono>
#include <string>

#include <ecu/tamu/config/configuration.h>

namespace ecu::tamu::com::mqtt {

/// What a client needs to know of its broker and of itself.
struct MqttSettings {
  std::string client_id;
  /// Name, address, or path of a Unix-domain socket (begins with "/").
  std::string host;
  int port = 0;  // not used with a path
  std::string username;
  std::string password;
  std::string cafile;  // TLS is on when set
  std::string certfile;
  std::string keyfile;
  std::chrono::seconds keepalive{};
  bool presence = true;

  [[nodiscard]] bool is_unix_socket() const { return host.front() == '/'; }
  [[nodiscard]] bool uses_tls() const { return !cafile.empty(); }

  /// Where the client says whether it is on line.
  [[nodiscard]] std::string presence_topic() const { return "system/presence/" + client_id; }

  /// The broker as log lines name it.
  [[nodiscard]] std::string broker() const;
};

/// Reads the settings from a configuration that has been verified; what is unset takes its default.
[[nodiscard]] MqttSettings read_settings(const config::Configuration& config);

}  // namespace ecu::tamu::com::mqtt
