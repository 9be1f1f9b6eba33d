#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/config/configuration.h>

namespace ecu::tamu::com::mqtt {

/// The settings of a client and its broker.
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
  std::optional<Presence> presence;
  /// The longest pause before an attempt to reconnect; 0: see Backoff.
  std::chrono::milliseconds reconnect_spread{0};
  /// See ClientTraits.
  std::chrono::seconds repeat_after{0};
  /// See ClientTraits; may be empty.
  std::function<void(const std::string& topic)> topic_cleared;
  /// How many times the usual number of messages and bytes may wait for an observer.
  std::size_t backlog = 1;
  /// Distinguishes the clients of one process in the service manager's status text.
  std::string name;
  /// How long an attempt to connect may take, from the lookup of the host's name on.
  std::chrono::milliseconds connect_timeout{10'000};
  /// How long the broker may take for a mandatory answer; `read_settings` sets it to the keep-alive.
  std::chrono::milliseconds answer_timeout{60'000};

  /// The first pause before a message for which the broker ended the connection is tested again, and before a
  /// refused subscription is requested again.
  std::chrono::seconds retest_after{60};

  [[nodiscard]] bool is_unix_socket() const { return host.front() == '/'; }
  /// Whether the broker runs on this machine: a socket path, "localhost", 127.0.0.0/8 or ::1.
  [[nodiscard]] bool is_local() const;
  [[nodiscard]] bool uses_tls() const { return !cafile.empty(); }

  /// The broker as log lines name it.
  [[nodiscard]] std::string broker() const;
};

/// Reads the settings from a verified configuration; unset keys have their defaults.
[[nodiscard]] MqttSettings read_settings(const config::Configuration& config,
                                         const ClientTraits& traits = {});

}  // namespace ecu::tamu::com::mqtt
