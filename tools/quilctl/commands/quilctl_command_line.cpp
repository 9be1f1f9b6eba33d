#include "quilctl/commands/quilctl_command_line.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <span>
#include <sstream>

#include <ecu/tamu/com/topic.h>

#include "quilctl/base/failure.h"
#include "quilctl/commands/usage_error.h"

namespace ecu::ctl {

namespace {

constexpr int max_port = 65'535;
constexpr double max_seconds = 1e6;
constexpr double max_speed = 1e6;

constexpr const char* description = R"(Examples:
  quilctl list                       every variable: value, age, where it comes from
  quilctl get serialnumber           one value, alone on standard output
  quilctl watch --table              all of them, live
  quilctl status                     is everything well?

Shows and changes what the environment-variable daemon of a unit knows.)";

constexpr const char* exit_codes =
    R"(Exit codes: 0 done; 1 other failure; 2 wrong usage; 3 unknown name or identifier; 4 known but without a
value; 5 refused; 6 the daemon is off line; 7 broker not reachable, or it does not let us in; 27 time-out.
Environment: QUILCTL_HOST, QUILCTL_PORT, QUILCTL_USER, QUILCTL_PASSWORD_FILE, QUILCTL_CAFILE, QUILCTL_CERT,
QUILCTL_KEY, QUILCTL_CONFIG stand in for options that are not given. NO_COLOR turns colours off.)";

constexpr const char* other_options = "quilctl --help shows the options of all commands, and the exit codes.";

using Seconds = std::optional<std::chrono::duration<double>>;

template <class Test>
CLI::Validator validator(Test is_valid, const std::string& what) {
  return {[=](const std::string& text) { return is_valid(text) ? "" : "'" + text + "' is no " + what; }, ""};
}

// The conversions of the library take more for numbers than people mean by them: nan, 0x10, blanks.
CLI::Validator is_number() {
  return validator(
      [](const std::string& text) { return text.find_first_not_of("0123456789.eE+-") == std::string::npos; },
      "number");
}
CLI::Validator is_digits() {
  return validator(
      [](const std::string& text) { return text.find_first_not_of("0123456789") == std::string::npos; },
      "number");
}
// An empty one comes of a variable of the shell that is not set, and must not mean the default.
CLI::Validator is_not_empty() {
  return validator([](const std::string& text) { return !text.empty(); }, "value");
}
CLI::Validator is_count() {
  return validator(
      [](const std::string& text) {
        return text.find_first_not_of("0123456789") == std::string::npos &&
               text.find_first_not_of('0') != std::string::npos;
      },
      "number from 1 on");
}
CLI::Validator is_filter() {
  return validator(tamu::com::is_topic_filter, "MQTT filter");
}

/// Shows in a list of commands what each is for, and leaves its examples to its own help.
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

/// Adds commands to a command line; the one that is called sets itself in the options.
class Builder {
 public:
  Builder(CLI::App& app, Options& options) : app_(app), options_(options) {}

  /// A command of `parent`; `examples` are a line each, `purpose` stands in the list of commands.
  CLI::App& command(CLI::App& parent, const std::string& name, Command command, const std::string& purpose,
                    const std::string& examples) {
    CLI::App& added = *parent.add_subcommand(name, purpose);
    added.description("Examples:\n" + examples + "\n\n" + purpose);
    added.footer(other_options);
    added.fallthrough();
    added.callback([this, command] { options_.command = command; });
    return added;
  }
  CLI::App& command(const std::string& name, Command which, const std::string& purpose,
                    const std::string& examples) {
    return command(app_, name, which, purpose, examples);
  }
  CLI::App& group(const std::string& name, const std::string& purpose, const std::string& examples) {
    CLI::App& added = *app_.add_subcommand(name, "Examples:\n" + examples + "\n\n" + purpose);
    added.fallthrough();
    added.footer(other_options);
    added.require_subcommand(1);
    return added;
  }

  static void seconds(CLI::App& command, const std::string& name, Seconds& target,
                      const std::string& purpose) {
    command
        .add_option_function<double>(
            name, [&target](double value) { target = std::chrono::duration<double>(value); }, purpose)
        ->check(is_number())
        ->check(CLI::Range(0.0, max_seconds))
        ->type_name("SECONDS");
  }

  void reveal(CLI::App& command, const std::string& purpose) {
    command.add_flag("--reveal", options_.reveal, purpose);
  }
  void raw(CLI::App& command, const std::string& purpose) {
    command.add_flag("--raw", options_.raw, purpose + "; not with --json");
  }

 private:
  CLI::App& app_;
  Options& options_;
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
      "name or address of the broker, or the path of its Unix-domain socket; default localhost");
  add("--port", broker.port, "PORT", "PORT", "port of the broker; default 1883")
      ->check(is_digits())
      ->check(CLI::Range(1, max_port));
  add("--user", broker.user, "USER", "NAME", "login at the broker");
  add("--password-file", broker.password_file, "PASSWORD_FILE", "FILE", "its first line is the password");
  add("--cafile", broker.ca_file, "CAFILE", "FILE", "authorities in PEM; turns TLS on");
  add("--cert", broker.certificate_file, "CERT", "FILE", "the client's certificate");
  add("--key", broker.key_file, "KEY", "FILE", "the client's key");
  add("--config", broker.config_file, "CONFIG", "FILE",
      "the daemon's configuration file, for all of the above that is not given");
  Builder::seconds(app, "--timeout", options.timeout,
                   "how long to wait for the broker and for an effect; default 5 (param set: 35)");
  app.add_flag("--json", options.json, "one JSON object a line");
  app.add_flag("-v,--verbose", options.verbose, "show what the connection does");
}

void add_variable_commands(Builder& build, Options& options) {
  build.command("list", Command::list, "Lists every variable with its value, age and source.",
                "  quilctl list\n  quilctl list --json");
  CLI::App& get = build.command("get", Command::get, "Prints the value of one variable.",
                                "  quilctl get serialnumber\n  quilctl get vehicleid --wait 60");
  get.add_option("NAME", options.words, "the variable")->required()->expected(1);
  Builder::seconds(get, "--wait", options.wait, "wait so long for a value to come");
  build.raw(get, "the value as it is, without escapes and end of line");
  CLI::App& watch =
      build.command("watch", Command::watch, "Prints each change of a variable, until it is interrupted.",
                    "  quilctl watch\n  quilctl watch 'version*' vehicleid\n  quilctl watch --table");
  watch.add_option("PATTERN", options.words, "names to watch; * and ? stand for any characters");
  watch.add_flag("--table", options.table, "on a terminal: all of them in a table that is drawn again");
  build.raw(watch, "values as they are, without escapes");
  CLI::App& describe =
      build.command("describe", Command::describe, "Explains one variable, or all; asks nobody for it.",
                    "  quilctl describe\n  quilctl describe hwversion");
  describe.add_option("NAME", options.words, "the variable")->expected(0, 1);
}

void add_parameter_commands(Builder& build, Options& options) {
  CLI::App& param =
      build.group("param", "Reads and writes system parameters.",
                  "  quilctl param list\n  quilctl param get 0xa009\n  quilctl param set 0x11=42");
  CLI::App& get = build.command(param, "get", Command::param_get, "Prints the values of system parameters.",
                                "  quilctl param get 0xa009\n  quilctl param get 17 18 19");
  get.add_option("ID", options.words, "decimal, or hexadecimal behind 0x")->required();
  build.raw(get, "the value as it is, without escapes and end of line; of one parameter only");
  build.command(param, "list", Command::param_list, "Lists all system parameters.", "  quilctl param list");
  CLI::App& set = build.command(
      param, "set", Command::param_set, "Writes system parameters and waits until they have been read back.",
      "  quilctl param set 0x11=42\n  quilctl param set 0x11=hex:0a0b 0x12=@value.bin");
  set.add_option("ID=VALUE", options.words, "the value as text, in hexadecimal behind hex:, or @FILE")
      ->required();
}

void add_secure_storage_commands(Builder& build, Options& options) {
  const auto which = [&options](CLI::App& command) {
    command.add_option("WHICH", options.which, "master or remote")
        ->required()
        ->check(CLI::IsMember({"master", "remote"}));
  };
  CLI::App& secstore =
      build.group("secstore", "Reads and writes the values of the secure storage.",
                  "  quilctl secstore get master > master.bin\n  quilctl secstore set master @master.bin");
  CLI::App& get = build.command(
      secstore, "get", Command::secstore_get, "Writes a value of the secure storage to standard output.",
      "  quilctl secstore get master > master.bin\n  quilctl secstore get remote --reveal");
  which(get);
  build.reveal(get, "even when standard output is a terminal");
  build.raw(get, "on a terminal too: as it is, without escapes and end of line");
  CLI::App& set = build.command(
      secstore, "set", Command::secstore_set, "Stores a value and waits for its confirmation.",
      "  quilctl secstore set master @master.bin\n  quilctl secstore set remote - < remote.bin");
  which(set);
  set.add_option("VALUE", options.file, "@FILE, or - for standard input")->required();
}

void add_other_commands(Builder& build, Options& options) {
  build.command("status", Command::status, "Tells whether broker and daemon are there and what they have.",
                "  quilctl status");
  CLI::App& check = build.command(
      "check", Command::check, "Reads a configuration file as the daemon would: its faults, or what holds.",
      "  quilctl check /etc/morn/tolquil.conf");
  check.add_option("FILE", options.file, "the configuration file")->required();
  CLI::App& decode =
      build.command("decode", Command::decode,
                    "Shows the messages of the bus with all that is in them, until it is interrupted.",
                    "  quilctl decode\n  quilctl decode 'rt/#' --count 10");
  decode.add_option("TOPIC", options.filter, "a topic, or an MQTT filter; default #")->check(is_filter());
  decode.add_option("--count", options.count, "end after so many messages")
      ->check(is_count())
      ->type_name("N");
  build.reveal(decode, "the values of the secure storage too");
  CLI::App& record =
      build.command("record", Command::record, "Writes what is seen on the bus, with times, to a text file.",
                    "  quilctl record fault.rec\n  quilctl record rt.rec --topics 'rt/#' --duration 60");
  record.add_option("FILE", options.file, "- for standard output")->required();
  record.add_option("--topics", options.filter, "an MQTT filter; default #")
      ->check(is_filter())
      ->type_name("FILTER");
  Builder::seconds(record, "--duration", options.duration, "end after so long");
  build.reveal(record, "record the values of the secure storage too");
  CLI::App& replay =
      build.command("replay", Command::replay, "Publishes again what was recorded of the real-time side.",
                    "  quilctl replay fault.rec\n  quilctl replay fault.rec --speed 10");
  replay.add_option("FILE", options.file, "- for standard input")->required();
  replay.add_option("--speed", options.speed, "so many times as fast; 0: without pauses; default 1")
      ->check(is_number())
      ->check(CLI::Range(0.0, max_speed))
      ->type_name("X");
  replay
      .add_option("--topics", options.filter,
                  "an MQTT filter; default rt/# without the daemon's rt/j1939can/tx/#")
      ->check(is_filter())
      ->type_name("FILTER");
}

// Options that exclude each other, or that have no effect.
void require_sense(const Options& options) {
  if (options.json && (options.command == Command::record || options.command == Command::replay)) {
    throw CLI::ValidationError("--json", "not of recordings, which have a format of their own");
  }
  if (options.json && (options.raw || options.table)) {
    throw CLI::ExcludesError("--json", options.raw ? "--raw" : "--table");
  }
  if (options.table && options.raw) {
    throw CLI::ExcludesError("--table", "--raw");
  }
  if (options.raw && options.command == Command::param_get && options.words.size() > 1) {
    throw CLI::ValidationError("--raw", "of one parameter only");
  }
}

}  // namespace

std::optional<int> parse_command_line(int argc, const char* const* argv, Options& options) {
  CLI::App app(description, "quilctl");
  app.footer(exit_codes);
  app.formatter(std::make_shared<ShortListFormatter>());
  app.require_subcommand(1);
  app.set_version_flag("-V,--version", QUILCTL_VERSION);
  Builder build(app, options);
  add_common_options(app, options);
  add_variable_commands(build, options);
  add_parameter_commands(build, options);
  add_secure_storage_commands(build, options);
  add_other_commands(build, options);
  try {
    app.parse(argc, argv);
    require_sense(options);
  } catch (const CLI::Success& end) {
    return app.exit(end);
  } catch (const CLI::ParseError& error) {
    tell_usage_error(app, error, std::span(argv, static_cast<std::size_t>(argc)));
    return static_cast<int>(ExitCode::usage);
  }
  return std::nullopt;
}

}  // namespace ecu::ctl
