#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <ecu/tamu/com/topics.h>

#include "common/broker_options.h"
#include "quilctl/base/failure.h"

namespace ecu::ctl {

/// How to reach the broker. An empty member takes its value from the configuration file, or else the default.
struct BrokerOptions : tools::BrokerOptions {
  std::string config_file;
  std::string unit_config_file;    // applies without a host, a port and `config_file`, when it is readable
  bool host_is_inherited = false;  // from the environment
  std::size_t backlog = 1;         // how many times the usual number of messages may wait
};

struct Options;

/// Runs a command. Writes its data to standard output and all else to standard error; throws `Failure` when
/// it cannot do its work.
using CommandFunction = ExitCode (*)(const Options& options);

/// The command line, with defaults from the environment.
struct Options {
  CommandFunction command = nullptr;
  BrokerOptions broker;
  bool json = false;
  bool raw = false;                  // values unchanged, without escapes
  bool verbose = false;              // log of the bus client on standard error
  std::optional<std::string> fleet;  // units of a fleet, by name or pattern: the broker is that of the fleet
  std::string fleet_prefix = tamu::com::topics::default_fleet_prefix;
  bool yes = false;  // do not ask
  /// For the broker's answer and for the effect of a command; unset: the command's default.
  std::optional<std::chrono::duration<double>> timeout;

  std::vector<std::string> arguments;                     // names, patterns, identifiers or ID=VALUE
  std::optional<std::chrono::duration<double>> wait;      // for a value
  std::optional<std::string> fallback;                    // in place of a missing value
  std::string format;                                     // of a line; see `formatted`
  bool shell = false;                                     // assignments for a shell
  std::string expect_file;                                // names and values to wait for
  std::string exec;                                       // command to run for each change
  bool table = false;                                     // a table that is redrawn
  bool reveal = false;                                    // show or record secrets
  std::string secret;                                     // value of the secure storage: master or remote
  std::string file;                                       // to read or write; "-" is standard input or output
  std::string filter;                                     // MQTT topic filter
  std::optional<unsigned> count;                          // end after this number of messages
  std::optional<std::chrono::duration<double>> duration;  // of a recording
  double speed = 1;                                       // of a replay
};

}  // namespace ecu::ctl
