#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/standard_streams.h>

#include "common/input_file.h"
#include "common/notes.h"
#include "ecusim/broker_client.h"
#include "ecusim/daemon_return.h"
#include "ecusim/ecusim_command_line.h"
#include "ecusim/fleet.h"
#include "ecusim/hypervisor.h"
#include "ecusim/player.h"
#include "ecusim/scenario.h"
#include "ecusim/vehicle.h"

namespace {

using namespace ecu::sim;
using ecu::tools::note;
namespace logging = ecu::tamu::logging;
namespace topics = ecu::tamu::com::topics;

constexpr std::size_t max_scenario_size = std::size_t{64} * 1024 * 1024;

// Nothing when the scenario is invalid or cannot be read; the reason is on standard error.
std::optional<Scenario> load_scenario(const std::string& path) {
  if (path.empty()) {
    return parse_scenario(default_scenario());
  }
  try {
    return parse_scenario(ecu::tools::read_file(path, max_scenario_size));
  } catch (const ecu::tools::InputError& error) {
    note(error.what());
    return std::nullopt;
  } catch (const Fault& fault) {
    note(path + ':' + std::to_string(fault.line()) + ": " + fault.what());
    return std::nullopt;
  }
}

int print_scenario() {
  if (std::cout << default_scenario() << std::flush) {
    return exit_done;
  }
  note("cannot write to standard output");
  return exit_failure;
}

int play(const Options& options, Scenario scenario) {
  BrokerClient bus(options.broker);
  bus.client()->connect();
  bus.client()->start();
  std::optional<Hypervisor> hypervisor;
  if (!options.ports_folder.empty()) {
    hypervisor.emplace(std::move(scenario.ports).value_or(PortsSetup()), options.ports_folder,
                       options.ports_access);
    bus.client()->subscribe(topics::daemon_presence, 1, std::make_shared<DaemonReturn>([&hypervisor] {
                              hypervisor->send_parameters_again();
                            }));
  }
  std::optional<Vehicle> vehicle;
  if (scenario.vehicle) {
    vehicle.emplace(std::move(*scenario.vehicle), bus.client());
  }
  const Player player(std::move(scenario.messages), bus.client());
  bus.run();
  return exit_done;
}

int run(const Options& options) {
  if (options.command == Command::scenario) {
    return print_scenario();
  }
  if (options.command == Command::fleet) {
    run_fleet(options.fleet);
    return exit_done;
  }
  std::optional<Scenario> scenario = load_scenario(options.scenario_path);
  if (!scenario) {
    return exit_usage;
  }
  return play(options, std::move(*scenario));
}

}  // namespace

int main(int argc, char* argv[]) {
  ecu::tamu::open_standard_streams();
  Options options;
  if (const auto exit_code = parse_command_line(argc, argv, options)) {
    return *exit_code;
  }
  logging::set_log_mode(logging::LogMode::standard_error);
  logging::configure_logging("ERROR");  // ConnectionReport says the rest
  try {
    return run(options);
  } catch (const ecu::tools::InputError& error) {
    note(error.what());
    return exit_usage;
  } catch (const std::exception& failure) {
    note(failure.what());
    return exit_failure;
  }
}
