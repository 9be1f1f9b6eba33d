#include "quilctl/commands/quilctl_command_line.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <span>
#include <sstream>

#include "common/version.h"
#include "quilctl/commands/command_table.h"
#include "quilctl/commands/commands.h"
#include "quilctl/commands/option_checks.h"
#include "quilctl/commands/usage_error.h"

namespace ecu::ctl {

namespace {

constexpr int max_port = 65'535;

constexpr const char* description = R"(Examples:
  quilctl list                       every variable: value, age, source
  quilctl get serialnumber           one value, and nothing else, on standard output
  quilctl watch --table              all variables, live
  quilctl status                     is everything well?

Shows and changes the variables, system parameters and secrets of a unit's environment-variable daemon.)";

constexpr const char* exit_codes =
    R"(Exit codes: 0 done; 1 other failure; 2 wrong usage; 3 unknown name or identifier; 4 known but without a
value; 5 refused; 6 the daemon is off line; 7 broker not reachable, or login rejected; 27 time-out.
Environment: QUILCTL_HOST, QUILCTL_PORT, QUILCTL_USER, QUILCTL_PASSWORD_FILE, QUILCTL_CAFILE, QUILCTL_CERT,
QUILCTL_KEY and QUILCTL_CONFIG are the defaults of the options. NO_COLOR turns colours off.)";

constexpr const char* other_options = "quilctl --help shows the options of all commands, and the exit codes.";

/// Shows the purpose of each command in a list of commands; its examples are in its own help.
class ShortListFormatter final : public CLI::Formatter {
 public:
  std::string make_subcommand(const CLI::App* command) const override {
    const std::string text = command->get_description();
    const std::size_t examples_end = text.rfind("\n\n");
    std::ostringstream line;
    CLI::detail::format_help(line, command->get_name(),
                             examples_end == std::string::npos ? text : text.substr(examples_end + 2),
                             get_column_width());
    return line.str();
  }
};

void add_common_options(CLI::App& app, Options& options) {
  BrokerOptions& broker = options.broker;
  const auto add = [&app](const std::string& name, std::string& target, const std::string& environment,
                          const std::string& type, const std::string& purpose) {
    return app.add_option(name, target, purpose)
        ->check(is_not_empty())
        ->envname("QUILCTL_" + environment)
        ->type_name(type);
  };
  add("--host", broker.host, "HOST", "HOST",
      "name or address of the broker, or path of its Unix-domain socket; default localhost");
  add("--port", broker.port, "PORT", "PORT", "port of the broker; default 1883")
      ->check(is_digits())
      ->check(CLI::Range(1, max_port));
  add("--user", broker.user, "USER", "NAME", "user name for the broker");
  add("--password-file", broker.password_file, "PASSWORD_FILE", "FILE", "its first line is the password");
  add("--cafile", broker.ca_file, "CAFILE", "FILE", "certificate authorities in PEM; turns TLS on");
  add("--cert", broker.certificate_file, "CERT", "FILE", "the client's certificate");
  add("--key", broker.key_file, "KEY", "FILE", "the client's key");
  add("--config", broker.config_file, "CONFIG", "FILE",
      "the daemon's configuration file, for the options above that are not given");
  add_seconds(app, "--timeout", options.timeout,
              "time limit for the broker and for an effect; default 5 (param set: 35)");
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

// Refuses combinations that exclude each other or have no effect.
void check_combinations(const Options& options) {
  if (options.json && (options.command == record || options.command == replay)) {
    throw CLI::ValidationError("--json", "not for recordings, which have their own format");
  }
  if (options.json && (options.raw || options.table)) {
    throw CLI::ExcludesError("--json", options.raw ? "--raw" : "--table");
  }
  if (options.table && options.raw) {
    throw CLI::ExcludesError("--table", "--raw");
  }
  if (options.raw && options.command == param_get && options.arguments.size() > 1) {
    throw CLI::ValidationError("--raw", "for one parameter only");
  }
}

}  // namespace

std::optional<int> parse_command_line(int argc, const char* const* argv, Options& options) {
  CLI::App app(description, "quilctl");
  app.footer(exit_codes);
  app.formatter(std::make_shared<ShortListFormatter>());
  app.require_subcommand(1);
  app.set_version_flag("-V,--version", tools::release_version());
  add_common_options(app, options);
  for (const CommandEntry& entry : commands()) {
    add_command(app, entry, options);
  }
  try {
    app.parse(argc, argv);
    check_combinations(options);
  } catch (const CLI::Success& end) {
    return app.exit(end);
  } catch (const CLI::ParseError& error) {
    report_usage_error(app, error, std::span(argv, static_cast<std::size_t>(argc)));
    return static_cast<int>(ExitCode::usage);
  }
  return std::nullopt;
}

}  // namespace ecu::ctl
