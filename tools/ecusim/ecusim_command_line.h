#pragma once

#include <optional>
#include <string>

#include "common/broker_options.h"
#include "ecusim/fifo.h"
#include "ecusim/fleet_unit.h"

namespace ecu::sim {

inline constexpr int exit_done = 0;
inline constexpr int exit_failure = 1;
inline constexpr int exit_usage = 2;  // also for an invalid scenario

enum class Command { play, scenario, fleet };

/// The command line.
struct Options {
  Command command = Command::play;
  std::string scenario_path;  // empty: the built-in scenario
  tools::BrokerOptions broker;
  std::string ports_folder;  // empty: no queueing ports
  FifoAccess ports_access;
  FleetSetup fleet;
};

/// Reads the command line into `options`. Returns an exit code when the program must not continue, because
/// help was requested or the command line is wrong; the user has already seen the text.
[[nodiscard]] std::optional<int> parse_command_line(int argc, const char* const* argv, Options& options);

}  // namespace ecu::sim
