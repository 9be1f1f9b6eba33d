#pragma once

#include <string>

#include <ecu/tamu/config/configuration.h>

#include "common/input_file.h"

/// How the tools reach the broker.
namespace ecu::tools {

/// The options as given; an empty one is not given.
struct BrokerOptions {
  std::string host;  // see `parse_broker_address`
  std::string port;
  std::string user;
  std::string password_file;
  std::string ca_file;
  std::string certificate_file;
  std::string key_file;
};

/// A broker's address.
struct BrokerAddress {
  std::string host;  // name, IP address, or path of a Unix-domain socket
  std::string port;  // empty: the default
  bool is_tls = false;
};

/// Options that contradict each other, or that have invalid values; `what()` says which.
using BrokerOptionsError = InputError;

/// Reads HOST, HOST:PORT, [IPV6]:PORT, mqtt://HOST[:PORT], mqtts://HOST[:PORT], unix:PATH, or the absolute
/// path of a Unix-domain socket. Throws `BrokerOptionsError` for any other text.
[[nodiscard]] BrokerAddress parse_broker_address(const std::string& text);

/// Adds the options to the configuration of a bus client, which keeps its values for those that are not
/// given. TLS without a port means port 8883. Throws `BrokerOptionsError`, also for a file that cannot be
/// used.
void apply(const BrokerOptions& options, tamu::config::Configuration& config);

/// The broker's address for messages to the user: HOST:PORT, or the path of its socket.
[[nodiscard]] std::string broker_address(const tamu::config::Configuration& config);

}  // namespace ecu::tools
