#include "ecusim/ecusim_command_line.h"

#include <grp.h>

#include <CLI/CLI.hpp>
#include <span>
#include <string_view>

#include <ecu/tamu/text/parse_number.h>

#include "common/option_checks.h"
#include "common/usage_error.h"
#include "common/version.h"

namespace ecu::sim {

namespace {

constexpr const char* description =
    "Simulates the environment of the daemon: the real-time side of the unit and the vehicle on the bus, "
    "and\n"
    "the other side of the queueing ports.";

constexpr const char* scenario_help = R"(A scenario is a JSON file:
  {
    "expect": {"hwversion": "r08"},             checked by quilctl list
    "messages": [
      {"topic": "rt/system/hw_variant",
       "at_ms": 0,                              first publication, after the start; default 0
       "every_ms": 1000,                        period; default: once only
       "times": 5,                              publications in all; default: unlimited
       "retain": false,                         default false
       "signals": [
         {"name": "variant", "text": "R08_B1", "pad_to": 16},
         {"name": "data", "hex": "d2 02 96 49", "offset": 64, "pad_to": 128, "pad_with": 255},
         {"name": "kl15", "bytes": [1], "status": 3},
         {"name": "nof_bytes", "value": 17}
       ]},
      {"topic": "rt/system/hw_variant", "at_ms": 500, "raw": "00 ff"}
    ],
    "vehicle": {"vin": "1M8GDM9AXKP042788",     answers requests for the VIN
                "source_address": "00",         or "ee", "fe"
                "answer_after_ms": 200},        default 0
    "ports": {                                  for --ports
      "parameters": [{"id": "0xa009", "text": "TV-2026.11.0"}],
      "master": {"hex": "0011"},                values of the secure storage
      "remote": {"bytes": [0, 17]},
      "answer_after_ms": 100}                   default 0
  }
Vehicle and ports have further keys for faults: see docs/ecusim.md.
`ecusim scenario` prints the built-in scenario.

Exit codes: 0 done; 1 failure; 2 wrong usage or an invalid scenario.)";

void set_group(FifoAccess& access, const std::string& name) {
  const group* const known = ::getgrnam(name.c_str());
  access.group = known != nullptr ? std::optional(known->gr_gid) : tamu::text::parse_number<gid_t>(name);
  if (!access.group) {
    throw CLI::ValidationError("--group", "there is no group " + name);
  }
}

void set_mode(FifoAccess& access, const std::string& octal) {
  constexpr mode_t all_permissions = 0777;
  const auto mode = tamu::text::parse_number<mode_t>(octal, 8);
  if (!mode || *mode > all_permissions) {
    throw CLI::ValidationError("--mode", octal + " is not an octal number up to 777");
  }
  access.mode = *mode;
}

void add_play_options(CLI::App& command, Options& options) {
  command.add_option("SCENARIO", options.scenario_path, "JSON file; default: the built-in scenario")
      ->check(tools::is_not_empty());
  tools::add_broker_options(command, options.broker);
  CLI::Option* const ports = command
                                 .add_option("--ports", options.ports_folder,
                                             "existing folder for the queueing ports; default: no ports")
                                 ->check(tools::is_folder());
  FifoAccess& access = options.ports_access;
  command
      .add_option_function<std::string>(
          "--group", [&access](const std::string& name) { set_group(access, name); },
          "group of the queueing ports, by name or number; default: the system's choice")
      ->needs(ports);
  command
      .add_option_function<std::string>(
          "--mode", [&access](const std::string& octal) { set_mode(access, octal); },
          "permissions of the queueing ports, in octal; default: 600")
      ->needs(ports);
}

void add_fleet_options(CLI::App& command, FleetSetup& fleet) {
  constexpr unsigned most_units = 99'999, most_seconds = 86'400, most_port = 65'535;
  command.add_option("UNITS", fleet.units, "number of units; default: 100")
      ->check(tools::is_positive_number())
      ->check(CLI::Range(1U, most_units));
  command.add_option("--host", fleet.hosts, "addresses of the fleet's broker, which the units take in turn")
      ->delimiter(',')
      ->check(tools::is_not_empty())
      ->type_name("ADDRESS[,ADDRESS...]");
  command.add_option("-p,--port", fleet.port, "port of an address without one; default: 1883")
      ->check(tools::is_positive_number())
      ->check(CLI::Range(1U, most_port));
  command
      .add_option("--spread", fleet.reconnect_spread,
                  "longest pause before an attempt to reconnect; default: 30")
      ->check(tools::is_digits())
      ->check(CLI::Range(0U, most_seconds))
      ->type_name("SECONDS");
  command
      .add_option("--change", fleet.change_period, "time between two changes of a unit; default: no changes")
      ->check(tools::is_positive_number())
      ->check(CLI::Range(1U, most_seconds))
      ->type_name("SECONDS");
}

}  // namespace

std::optional<int> parse_command_line(int argc, const char* const* argv, Options& options) {
  CLI::App app(description, "ecusim");
  app.footer(scenario_help);
  app.require_subcommand(0, 1);
  app.set_version_flag("-V,--version", tools::release_version());
  add_play_options(app, options);
  add_play_options(*app.add_subcommand("play", "publish the scenario's messages (default command)"), options);
  app.add_subcommand("scenario", "print the built-in scenario");
  CLI::App* const fleet = app.add_subcommand("fleet", "simulate many units at the broker of their fleet");
  fleet->footer("Exit codes: 0 done; 1 failure; 2 wrong usage.");
  add_fleet_options(*fleet, options.fleet);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& end) {
    return app.exit(end);
  } catch (const CLI::ParseError& error) {
    tools::report_usage_error(app, error, std::span(argv, static_cast<std::size_t>(argc)));
    return exit_usage;
  }
  if (app.got_subcommand("scenario")) {
    options.command = Command::scenario;
  } else if (app.got_subcommand("fleet")) {
    options.command = Command::fleet;
  }
  return std::nullopt;
}

}  // namespace ecu::sim
