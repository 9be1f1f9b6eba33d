#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "ecusim/broker_client.h"
#include "ecusim/fifo.h"

namespace ecu::sim {

inline constexpr int exit_done = 0;
inline constexpr int exit_failure = 1;
inline constexpr int exit_usage = 2;  // also a scenario that cannot be used

enum class Command { play, scenario, watch };

/// What the command line said.
struct Options {
  Command command = Command::play;
  std::string scenario_path;  // empty: the scenario that is built in
  BrokerAddress broker;
  std::string ports_folder;  // empty: no queueing ports
  FifoAccess ports_access;
  bool once = false;
  std::chrono::duration<double> timeout = std::chrono::seconds(20);
};

/// Reads the command line into `options`. When the program is not to go on (help was asked for, or the
/// command line is wrong), says so to the user and returns the exit code.
[[nodiscard]] std::optional<int> parse_command_line(int argc, const char* const* argv, Options& options);

}  // namespace ecu::sim
