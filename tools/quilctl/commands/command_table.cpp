#include "quilctl/commands/command_table.h"

#include "common/option_checks.h"
#include "quilctl/base/failure.h"
#include "quilctl/commands/commands.h"
#include "quilctl/fleet/fleet_commands.h"
#include "quilctl/model/line_format.h"

namespace ecu::ctl {

namespace {

constexpr double max_speed = 1e6;
constexpr const char* names_purpose = "names; * stands for any characters, ? for any one character";

void add_names(CLI::App& command, Options& options) {
  command.add_option("NAME", options.arguments, names_purpose);
}

void add_format(CLI::App& command, Options& options) {
  tools::add_text(command, "--format", options.format, "TEXT",
                  "a line with the fields {unit}, {name}, {value}, {age}, {time} and {topic}; "
                  R"(\n, \t and \\ are escapes)")
      ->check(CLI::Validator(fault_of_format, ""));
  command.add_flag("--raw", options.raw,
                   "values unchanged, without escapes (get: without line end; list: with --format only); "
                   "not with --json");
}

void add_list_options(CLI::App& command, Options& options) {
  add_names(command, options);
  add_format(command, options);
  command.add_flag("--shell", options.shell, "assignments for eval in a shell");
  tools::add_text(command, "--expect", options.expect_file, "FILE",
                  "wait until all values are as in \"expect\" of this JSON file");
}

void add_get_options(CLI::App& command, Options& options) {
  command.add_option("NAME", options.arguments, names_purpose)->required();
  tools::add_seconds(command, "--wait", options.wait, "wait this long for a value");
  command.add_option("--default", options.fallback, "print this in place of a missing value")
      ->type_name("TEXT");
  add_format(command, options);
}

void add_count(CLI::App& command, Options& options, const std::string& what) {
  command.add_option("--count", options.count, "end after this number of " + what)
      ->check(tools::is_positive_number())
      ->type_name("N");
}

void add_watch_options(CLI::App& command, Options& options) {
  command.add_option("PATTERN", options.arguments, names_purpose);
  add_count(command, options, "changes, with the values retained at the start");
  tools::add_text(
      command, "--exec", options.exec, "COMMAND",
      "run this shell command for each change, with UNIT, NAME and VALUE set; also for each value "
      "retained at the start, with RETAINED=1");
  command.add_flag("--table", options.table, "on a terminal: show all in a table that is redrawn");
  add_format(command, options);
}

void add_param_get_options(CLI::App& command, Options& options) {
  command.add_option("ID", options.arguments, "decimal, or hexadecimal after 0x")->required();
  command.add_flag("--raw", options.raw,
                   "unchanged, without escapes and line end; one parameter only; not with --json");
}

void add_param_set_options(CLI::App& command, Options& options) {
  command.add_option("ID=VALUE", options.arguments, "the value as text, in hexadecimal after hex:, or @FILE")
      ->required();
}

void add_secret(CLI::App& command, Options& options) {
  command.add_option("WHICH", options.secret, "master or remote")
      ->required()
      ->check(CLI::IsMember({"master", "remote"}));
}

void add_secstore_get_options(CLI::App& command, Options& options) {
  add_secret(command, options);
  command.add_flag("--reveal", options.reveal, "write to a terminal, too");
  command.add_flag("--raw", options.raw,
                   "on a terminal, too: unchanged, without escapes and line end; not with --json");
}

void add_secstore_set_options(CLI::App& command, Options& options) {
  add_secret(command, options);
  command.add_option("VALUE", options.file, "@FILE, or - for standard input")->required();
}

void add_check_options(CLI::App& command, Options& options) {
  command.add_option("FILE", options.file, "the configuration file")->required();
}

void add_decode_options(CLI::App& command, Options& options) {
  command.add_option("TOPIC", options.filter, "topic or MQTT topic filter; default #")
      ->check(tools::is_topic_filter());
  add_count(command, options, "messages");
  command.add_flag("--reveal", options.reveal, "show the values of the secure storage, too");
}

void add_record_options(CLI::App& command, Options& options) {
  command.add_option("FILE", options.file, "- for standard output")->required();
  command.add_option("--topics", options.filter, "MQTT topic filter; default #")
      ->check(tools::is_topic_filter())
      ->type_name("FILTER");
  tools::add_seconds(command, "--duration", options.duration, "end after this time");
  command.add_flag("--reveal", options.reveal, "record the values of the secure storage, too");
}

void add_replay_options(CLI::App& command, Options& options) {
  command.add_option("FILE", options.file, "- for standard input")->required();
  command.add_option("--speed", options.speed, "this many times as fast; 0: without pauses; default 1")
      ->check(tools::is_number())
      ->check(CLI::Range(0.0, max_speed))
      ->type_name("X");
  command
      .add_option("--topics", options.filter,
                  "MQTT topic filter; default rt/# without the daemon's own rt/j1939can/tx/#")
      ->check(tools::is_topic_filter())
      ->type_name("FILTER");
}

void add_retire_options(CLI::App& command, Options& options) {
  command.add_option("UNIT", options.arguments, "the name of the unit")->required()->expected(1);
  command.add_flag("--yes", options.yes, "do not ask");
}

ExitCode needs_fleet(const Options& /*options*/) {
  throw Failure(ExitCode::usage, "retire needs --fleet");
}

// As the first word it never gets here; see parse_command_line.
ExitCode misplaced_help(const Options& /*options*/) {
  throw Failure(ExitCode::usage, "help must be the first word: quilctl help COMMAND");
}

const CommandEntry table[] = {
    {.name = "list",
     .purpose = "Lists variables with their values, ages and sources.",
     .examples = "  quilctl list\n  quilctl list 'version*' --json\n  eval \"$(quilctl list --shell)\"",
     .add_options = add_list_options,
     .run = list,
     .run_on_fleet = fleet::list},
    {.name = "get",
     .purpose = "Prints the values of variables; for a single one, only the value.",
     .examples = "  quilctl get serialnumber\n  quilctl get vehicleid --wait 60 --default unknown\n  quilctl "
                 "get 'version*'",
     .add_options = add_get_options,
     .run = get,
     .run_on_fleet = fleet::get},
    {.name = "watch",
     .purpose = "Prints each change of a variable until interrupted.",
     .examples = "  quilctl watch\n  quilctl watch 'version*' vehicleid\n  quilctl watch vehicleid --exec "
                 "'logger \"VIN $VALUE\"'\n  quilctl watch --table\n  quilctl --fleet 'truck-*' watch",
     .add_options = add_watch_options,
     .run = watch,
     .run_on_fleet = watch},
    {.name = "describe",
     .purpose = "Explains variables, without a connection.",
     .examples = "  quilctl describe\n  quilctl describe hwversion",
     .add_options = add_names,
     .run = describe},
    {.name = "param",
     .purpose = "Reads and writes system parameters.",
     .examples = "  quilctl param list\n  quilctl param get 0xa009\n  quilctl param set 0x11=42"},
    {.group = "param",
     .name = "get",
     .purpose = "Prints the values of system parameters.",
     .examples = "  quilctl param get 0xa009\n  quilctl param get 17 18 19",
     .add_options = add_param_get_options,
     .run = param_get},
    {.group = "param",
     .name = "list",
     .purpose = "Lists all system parameters.",
     .examples = "  quilctl param list",
     .run = param_list},
    {.group = "param",
     .name = "set",
     .purpose = "Writes system parameters and waits until they have been read back.",
     .examples = "  quilctl param set 0x11=42\n  quilctl param set 0x11=hex:0a0b 0x12=@value.bin",
     .add_options = add_param_set_options,
     .run = param_set},
    {.name = "secstore",
     .purpose = "Reads and writes the values of the secure storage.",
     .examples = "  quilctl secstore get master > master.bin\n  quilctl secstore set master @master.bin"},
    {.group = "secstore",
     .name = "get",
     .purpose = "Writes a value of the secure storage to standard output.",
     .examples = "  quilctl secstore get master > master.bin\n  quilctl secstore get remote --reveal",
     .add_options = add_secstore_get_options,
     .run = secstore_get},
    {.group = "secstore",
     .name = "set",
     .purpose = "Stores a value and waits for the confirmation.",
     .examples = "  quilctl secstore set master @master.bin\n  quilctl secstore set remote - < remote.bin",
     .add_options = add_secstore_set_options,
     .run = secstore_set},
    {.name = "status",
     .purpose = "Shows whether broker and daemon are reachable, and what the daemon has.",
     .examples = "  quilctl status",
     .run = status,
     .run_on_fleet = status},
    {.name = "check",
     .purpose = "Checks a configuration file as the daemon would: prints its errors, or its settings.",
     .examples = "  quilctl check /etc/morn/tolquil.conf",
     .add_options = add_check_options,
     .run = check},
    {.name = "decode",
     .purpose = "Shows the complete contents of messages on the bus until interrupted.",
     .examples = "  quilctl decode\n  quilctl decode 'rt/#' --count 10",
     .add_options = add_decode_options,
     .run = decode},
    {.name = "record",
     .purpose = "Records the messages of the bus, with times, in a text file.",
     .examples = "  quilctl record fault.rec\n  quilctl record rt.rec --topics 'rt/#' --duration 60",
     .add_options = add_record_options,
     .run = record},
    {.name = "replay",
     .purpose = "Replays a recording of the real-time side.",
     .examples = "  quilctl replay fault.rec\n  quilctl replay fault.rec --speed 10",
     .add_options = add_replay_options,
     .run = replay},
    {.name = "retire",
     .purpose = "With --fleet: clears what the fleet's broker retains of a unit.",
     .examples = "  quilctl --fleet retire unit-0001",
     .add_options = add_retire_options,
     .run = needs_fleet,
     .run_on_fleet = fleet::retire},
    {.name = "help",
     .purpose = "Shows the usage of a command.",
     .examples = "  quilctl help watch",
     .run = misplaced_help},
};

}  // namespace

std::span<const CommandEntry> commands() noexcept {
  return table;
}

}  // namespace ecu::ctl
