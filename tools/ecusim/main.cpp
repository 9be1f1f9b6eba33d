#include <pthread.h>

#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/logging/logging.h>

#include "common/input_file.h"
#include "ecusim/broker_client.h"
#include "ecusim/daemon_return.h"
#include "ecusim/ecusim_command_line.h"
#include "ecusim/hypervisor.h"
#include "ecusim/interruptible_sleep.h"
#include "ecusim/parameter_requests.h"
#include "ecusim/player.h"
#include "ecusim/scenario.h"
#include "ecusim/vehicle.h"
#include "ecusim/watcher.h"

namespace {

using namespace ecu::sim;
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
    std::cerr << error.what() << std::endl;
    return std::nullopt;
  } catch (const Fault& fault) {
    std::cerr << path << ':' << fault.line() << ": " << printable(fault.what()) << std::endl;
    return std::nullopt;
  }
}

int print_scenario() {
  std::cout << default_scenario() << std::flush;
  return std::cout ? exit_done : exit_failure;
}

int play(const Options& options, Scenario scenario) {
  BrokerClient bus(options.broker, "play");
  bus.client()->connect();
  bus.client()->start();
  std::optional<Hypervisor> hypervisor;
  if (!options.ports_folder.empty()) {
    hypervisor.emplace(std::move(scenario.ports).value_or(PortsSetup()), options.ports_folder,
                       options.ports_access);
    bus.client()->subscribe(
        ecu::tamu::com::topics::daemon_presence, 1,
        std::make_shared<DaemonReturn>([&hypervisor] { hypervisor->send_parameters_again(); }));
  }
  std::optional<Vehicle> vehicle;
  if (scenario.vehicle) {
    vehicle.emplace(std::move(*scenario.vehicle), bus.client());
  }
  const Player player(std::move(scenario.messages), bus.client());
  bus.run();
  return exit_done;
}

int watch(const Options& options) {
  BrokerClient bus(options.broker, "watch");
  bus.client()->connect();
  const auto printer = std::make_shared<VariablePrinter>(std::cout, [&bus] { bus.client()->stop(); });
  bus.client()->subscribe(topics::all_variables_filter, 0, printer);
  bus.client()->subscribe(topics::all_parameters_answer, 0, printer);
  bus.client()->start();
  const ParameterRequests requests(bus.client());
  bus.run();
  return std::cout ? exit_done : exit_failure;
}

int watch_once(const Options& options, const Scenario& scenario) {
  BrokerClient bus(options.broker, "watch");
  const auto client = bus.client();
  const auto checker = std::make_shared<VariableChecker>(scenario.expect, [&client] { client->stop(); });
  client->connect();
  client->subscribe(topics::all_variables_filter, 0, checker);
  client->subscribe(topics::all_parameters_answer, 0, checker);
  client->start();
  const ParameterRequests requests(client);
  const auto deadline = std::chrono::steady_clock::now() +
                        std::chrono::duration_cast<std::chrono::steady_clock::duration>(options.timeout);
  const std::jthread timer([&client, deadline](const std::stop_token& stop) {
    pthread_setname_np(pthread_self(), "deadline");
    if (sleep_until(stop, deadline)) {
      client->stop();
    }
  });
  bus.run();
  return checker->report(std::cout, std::cerr) ? exit_done : exit_failure;
}

int run(const Options& options) {
  if (options.command == Command::scenario) {
    return print_scenario();
  }
  std::optional<Scenario> scenario = load_scenario(options.scenario_path);
  if (!scenario) {
    return exit_usage;
  }
  if (options.command == Command::play) {
    return play(options, std::move(*scenario));
  }
  if (!options.once) {
    return watch(options);
  }
  if (scenario->expect.empty()) {
    std::cerr << "ecusim: the scenario has no \"expect\", so there is nothing to wait for" << std::endl;
    return exit_usage;
  }
  return watch_once(options, *scenario);
}

}  // namespace

int main(int argc, char* argv[]) {
  Options options;
  if (const auto exit_code = parse_command_line(argc, argv, options)) {
    return *exit_code;
  }
  logging::set_log_mode(logging::LogMode::standard_error);
  try {
    return run(options);
  } catch (const std::exception& failure) {
    std::cerr << "ecusim: " << failure.what() << std::endl;
    return exit_failure;
  }
}
