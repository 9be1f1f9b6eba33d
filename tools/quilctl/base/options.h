#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace ecu::ctl {

/// How to reach the broker. What is empty comes from the configuration file, or else has the platform's
/// default.
struct BrokerOptions {
  std::string config_file;
  std::string host;  // name, address, or the path of a Unix-domain socket
  std::string port;
  std::string user;
  std::string password_file;
  std::string ca_file;
  std::string certificate_file;
  std::string key_file;
};

enum class Command {
  list,
  get,
  watch,
  describe,
  param_get,
  param_list,
  param_set,
  secstore_get,
  secstore_set,
  status,
  check,
  decode,
  record,
  replay,
};

/// What the command line and the environment said.
struct Options {
  Command command = Command::list;
  BrokerOptions broker;
  bool json = false;
  bool raw = false;      // values as they are, without escapes
  bool verbose = false;  // the log of the bus client on standard error
  /// For the broker to answer, and for an effect to be seen; unset: the command's own.
  std::optional<std::chrono::duration<double>> timeout;

  std::vector<std::string> words;                         // names, patterns, identifiers or ID=VALUE
  std::optional<std::chrono::duration<double>> wait;      // for a value
  bool table = false;                                     // redraw a table
  bool reveal = false;                                    // show or record secrets
  std::string which;                                      // value of the secure storage
  std::string file;                                       // to read or write; "-" is standard input or output
  std::string filter;                                     // topics, in MQTT's notation
  std::optional<unsigned> count;                          // of messages, after which to end
  std::optional<std::chrono::duration<double>> duration;  // of a recording
  double speed = 1;                                       // of a replay
};

}  // namespace ecu::ctl
