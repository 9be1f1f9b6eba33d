#include "ecusim/ecusim_command_line.h"

#include <grp.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <string_view>

#include "common/version.h"

namespace ecu::sim {

namespace {

constexpr int max_port = 65'535;
constexpr double max_timeout_s = 86'400;

constexpr const char* description =
    "Simulates the environment of the daemon: the real-time side of the unit and the vehicle on the bus, "
    "and\n"
    "the other side of the queueing ports. Shows the variables that the daemon publishes.";

constexpr const char* scenario_help = R"(A scenario is a JSON file:
  {
    "expect": {"hwversion": "r08"},             expected by watch --once
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

Exit codes: 0 done; 1 failure, or an expected variable is missing; 2 wrong usage or an invalid scenario.)";

template <class Number>
std::optional<Number> parse(std::string_view text, int base) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

void set_group(FifoAccess& access, const std::string& name) {
  const group* const known = ::getgrnam(name.c_str());
  access.group = known != nullptr ? std::optional(known->gr_gid) : parse<gid_t>(name, 10);
  if (!access.group) {
    throw CLI::ValidationError("--group", "there is no group " + name);
  }
}

void set_mode(FifoAccess& access, const std::string& octal) {
  constexpr mode_t all_permissions = 0777;
  const auto mode = parse<mode_t>(octal, 8);
  if (!mode || *mode > all_permissions) {
    throw CLI::ValidationError("--mode", octal + " is not an octal number up to 777");
  }
  access.mode = *mode;
}

void add_bus_options(CLI::App& command, Options& options) {
  command.add_option("SCENARIO", options.scenario_path, "JSON file; default: the built-in scenario");
  command
      .add_option("--host", options.broker.host,
                  "the broker's host, or the path of its Unix-domain socket, beginning with '/'")
      ->capture_default_str();
  command.add_option("--port", options.broker.port, "the broker's port")
      ->capture_default_str()
      ->check(CLI::Range(1, max_port));
}

void add_play_options(CLI::App& command, Options& options) {
  add_bus_options(command, options);
  CLI::Option* const ports = command
                                 .add_option("--ports", options.ports_folder,
                                             "existing folder for the queueing ports; default: no ports")
                                 ->check(CLI::ExistingDirectory);
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

void add_commands(CLI::App& app, Options& options, double& timeout_s) {
  add_play_options(app, options);
  CLI::App& play = *app.add_subcommand("play", "publish the scenario's messages (default command)");
  add_play_options(play, options);
  app.add_subcommand("scenario", "print the built-in scenario");
  CLI::App& watch = *app.add_subcommand("watch", "print the variables that the daemon publishes");
  add_bus_options(watch, options);
  CLI::Option* const once =
      watch.add_flag("--once", options.once, "exit 0 once every expected variable has arrived");
  watch.add_option("--timeout", timeout_s, "time limit of --once in seconds")
      ->capture_default_str()
      ->check(CLI::Range(0.0, max_timeout_s))
      ->needs(once);
}

}  // namespace

std::optional<int> parse_command_line(int argc, const char* const* argv, Options& options) {
  CLI::App app(description, "ecusim");
  app.footer(scenario_help);
  app.require_subcommand(0, 1);
  app.set_version_flag("-V,--version", tools::release_version());
  double timeout_s = options.timeout.count();
  add_commands(app, options, timeout_s);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& end) {
    return app.exit(end) == 0 ? exit_done : exit_usage;
  }
  options.timeout = std::chrono::duration<double>(timeout_s);
  if (app.got_subcommand("scenario")) {
    options.command = Command::scenario;
  } else if (app.got_subcommand("watch")) {
    options.command = Command::watch;
  }
  return std::nullopt;
}

}  // namespace ecu::sim
