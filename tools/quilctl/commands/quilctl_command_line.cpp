#include "quilctl/commands/quilctl_command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <span>
#include <sstream>
#include <vector>

#include <ecu/quil/settings.h>

#include "common/name_pattern.h"
#include "common/option_checks.h"
#include "common/usage_error.h"
#include "common/version.h"
#include "quilctl/commands/command_table.h"
#include "quilctl/commands/commands.h"
#include "quilctl/fleet/fleet_commands.h"

namespace ecu::ctl {

namespace {

constexpr const char* description = R"(Examples:
  quilctl                            every variable: value, age, source
  quilctl get serialnumber           one value, and nothing else, on standard output
  quilctl watch --table              all variables, live
  quilctl status                     is everything well?
  quilctl --fleet watch --table      all units of a fleet, live

Shows and changes the variables, system parameters and secrets of a unit's environment-variable daemon.)";

constexpr const char* exit_codes =
    R"(Exit codes: 0 done; 1 other failure; 2 wrong usage; 3 unknown name or identifier; 4 known but without a
value; 5 refused; 6 the daemon is off line; 7 broker not reachable, or login rejected; 27 time-out.
Environment: QUILCTL_HOST, QUILCTL_PORT, QUILCTL_USER, QUILCTL_PASSWORD_FILE, QUILCTL_CAFILE, QUILCTL_CERT,
QUILCTL_KEY and QUILCTL_CONFIG are the defaults of the options. NO_COLOR turns colours off.)";

// The broker of a fleet sends what it retains of thousands of units at once.
constexpr std::size_t fleet_backlog = 64;

constexpr const char* other_options = "quilctl --help shows the options of all commands, and the exit codes.";

/// Shows the purpose of each command in a list of commands; its examples are in its own help.
class ShortListFormatter final : public CLI::Formatter {
 public:
  std::string make_subcommand(const CLI::App* command) const override {
    const std::string text = command->get_description();
    const std::string purpose = text.substr(text.rfind('\n') + 1);  // after the examples
    std::ostringstream line;
    CLI::detail::format_help(line, command->get_name(), purpose, get_column_width());
    return line.str();
  }
};

void add_common_options(CLI::App& app, Options& options) {
  tools::add_broker_options(app, options.broker, "QUILCTL_");
  tools::add_text(app, "--config", options.broker.config_file, "FILE",
                  std::string("the daemon's configuration file, for the options above that are not given; "
                              "without --host and --port ") +
                      quil::default_config_path + ", when it is readable")
      ->envname("QUILCTL_CONFIG");
  app.add_option_function<std::string>(
         "--fleet", [&options](const std::string& units) { options.fleet = units; },
         "the broker is that of a fleet: the units of this name or pattern, or all; "
         "for list, get, watch, status, retire")
      ->expected(0, 1)
      ->type_name("[UNIT]");
  app.add_option("--fleet-prefix", options.fleet_prefix,
                 "first level of the fleet's topics; default " + options.fleet_prefix)
      ->type_name("TEXT");
  tools::add_seconds(
      app, "--timeout", options.timeout,
      "time limit for connecting and for verifying an effect; default 5 (list --expect: 20, param set: 35); "
      "watch and decode end after it");
  app.add_flag("--json", options.json, "one JSON object in each line");
  app.add_flag("-v,--verbose", options.verbose, "log the connection on standard error");
}

void add_command(CLI::App& app, const CommandEntry& entry, Options& options) {
  CLI::App& parent = *entry.group == '\0' ? app : *app.get_subcommand(entry.group);
  CLI::App& command = *parent.add_subcommand(entry.name, entry.purpose);
  command.description(std::string("Examples:\n") + entry.examples + "\n\n" + entry.purpose);
  command.footer(other_options);
  command.fallthrough();
  if (entry.run == nullptr) {
    command.require_subcommand(1);
    return;
  }
  command.callback([&options, run = entry.run] { options.command = run; });
  if (entry.add_options != nullptr) {
    entry.add_options(command, options);
  }
}

// Refuses options of which each selects another form of the output.
void check_forms(const Options& options) {
  const std::pair<bool, const char*> forms[] = {{options.json, "--json"},
                                                {options.shell, "--shell"},
                                                {!options.expect_file.empty(), "--expect"},
                                                {!options.format.empty(), "--format"},
                                                {options.table, "--table"},
                                                {!options.exec.empty(), "--exec"},
                                                {options.table && options.count, "--count"},
                                                {options.raw && options.format.empty(), "--raw"}};
  std::vector<std::string> given;
  for (const auto& [is_given, name] : forms) {
    if (is_given) {
      given.emplace_back(name);
    }
  }
  if (given.size() > 1) {
    throw CLI::ExcludesError(given[0], given[1]);
  }
}

// Refuses combinations that exclude each other or have no effect.
void check_combinations(const Options& options) {
  if (options.json && (options.command == record || options.command == replay)) {
    throw CLI::ValidationError("--json", "not for recordings, which have their own format");
  }
  check_forms(options);
  const bool is_many = options.arguments.size() > 1 ||
                       (!options.arguments.empty() && tools::is_pattern(options.arguments[0])) ||
                       (options.fleet && (options.fleet->empty() || tools::is_pattern(*options.fleet)));
  if (options.raw && options.format.empty() &&
      (options.command == list || (is_many && options.command != watch))) {
    throw CLI::ValidationError("--raw", "for one value only, or with --format");
  }
  if (!options.expect_file.empty() && !options.arguments.empty()) {
    throw CLI::ValidationError("--expect", "its file names the variables");
  }
}

// The command is then that for the fleet.
void apply_fleet(Options& options) {
  if (!options.fleet) {
    return;
  }
  const auto entry = std::ranges::find(commands(), options.command, &CommandEntry::run);
  if (entry->run_on_fleet == nullptr) {
    throw CLI::ValidationError("--fleet", "not for '" + std::string(entry->name) + '\'');
  }
  if (entry->run_on_fleet == fleet::retire && !options.fleet->empty()) {
    throw CLI::ValidationError("--fleet", "retire names its unit itself");
  }
  if (options.shell || !options.expect_file.empty()) {
    throw CLI::ValidationError("--fleet", "not with --shell and --expect");
  }
  options.command = entry->run_on_fleet;
  options.broker.backlog = fleet_backlog;
  options.broker.unit_config_file.clear();
}

// "quilctl help get" is "quilctl get --help".
std::vector<const char*> with_help_as_option(std::span<const char* const> arguments) {
  std::vector<const char*> words(arguments.begin(), arguments.end());
  if (words.size() > 1 && std::string_view(words[1]) == "help") {
    words.erase(words.begin() + 1);
    words.push_back("--help");
  }
  return words;
}

}  // namespace

std::optional<int> parse_command_line(int argc, const char* const* argv, Options& options) {
  CLI::App app(description, "quilctl");
  app.footer(exit_codes);
  app.formatter(std::make_shared<ShortListFormatter>());
  app.require_subcommand(0, 1);
  app.set_version_flag("-V,--version", tools::release_version());
  add_common_options(app, options);
  for (const CommandEntry& entry : commands()) {
    add_command(app, entry, options);
  }
  options.command = list;
  options.broker.unit_config_file = quil::default_config_path;
  const auto words = with_help_as_option(std::span(argv, static_cast<std::size_t>(argc)));
  try {
    app.parse(static_cast<int>(words.size()), words.data());
    check_combinations(options);
    apply_fleet(options);
  } catch (const CLI::Success& end) {
    const auto unknown = app.remaining(true);  // as in "quilctl help nothing"
    if (unknown.empty()) {
      return app.exit(end);
    }
    tools::report_usage_error(app, CLI::ExtrasError(unknown), words);
    return static_cast<int>(ExitCode::usage);
  } catch (const CLI::ParseError& error) {
    tools::report_usage_error(app, error, words);
    return static_cast<int>(ExitCode::usage);
  }
  options.broker.host_is_inherited = !tools::is_given("--host", words);
  return std::nullopt;
}

}  // namespace ecu::ctl
