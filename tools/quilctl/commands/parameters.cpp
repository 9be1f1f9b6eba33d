#include <algorithm>
#include <iostream>
#include <iterator>
#include <random>
#include <utility>

#include "common/hexadecimal.h"
#include "common/notes.h"
#include "quilctl/base/value_input.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/values.h"
#include "quilctl/screen/text_table.h"
#include "quilctl/talk/parameter_client.h"

namespace ecu::ctl {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char* nothing_received = "no parameters received from the other side of the ports yet";

// The daemon abandons a write after 30 s, and replies to nobody meanwhile.
constexpr seconds write_timeout{35};
constexpr seconds abandoned_after{29};

// The daemon discards a write that arrives while another one is under way. Of several clients that write at
// the same time one succeeds in each round; growing pauses of random length keep the others apart.
constexpr int write_attempts = 12;
constexpr milliseconds first_pause{50};
constexpr milliseconds longest_pause{1000};

std::uint32_t id_of_argument(const std::string& argument) {
  const auto id = parse_id(argument);
  if (!id) {
    throw Failure(ExitCode::usage, "invalid identifier '" + argument +
                                       "': use decimal, or hexadecimal after 0x, at most 32 bits");
  }
  return *id;
}

std::string shown_id(std::uint32_t id) {
  return "0x" + tools::to_hex_number(id);
}

void print_line(const Options& options, const Parameter& parameter) {
  if (options.json) {
    print_json(
        {{"id", parameter.id}, {"hex_id", shown_id(parameter.id)}, {"value", json_value(parameter.value)}});
  } else {
    std::cout << shown_id(parameter.id) << "  " << shown_value(parameter.value) << '\n';
  }
}

// From half of the pause to all of it.
milliseconds shortened(milliseconds pause) {
  static std::minstd_rand random{std::random_device()()};
  return pause / 2 +
         milliseconds(std::uniform_int_distribution<milliseconds::rep>(0, pause.count() / 2)(random));
}

Parameter setting_of(const std::string& argument) {
  const std::size_t separator = argument.find('=');
  if (separator == std::string::npos) {
    throw Failure(ExitCode::usage, "'" + argument + "' does not have the form ID=VALUE");
  }
  return {id_of_argument(argument.substr(0, separator)), value_of_argument(argument.substr(separator + 1))};
}

Parameters settings_of(const std::vector<std::string>& arguments) {
  Parameters settings;
  for (const std::string& argument : arguments) {
    Parameter setting = setting_of(argument);
    if (find(settings, setting.id) != nullptr) {
      throw Failure(ExitCode::usage, shown_id(setting.id) + " is given twice");
    }
    settings.push_back(std::move(setting));
  }
  return settings;
}

bool holds_all(const Parameters& parameters, const Parameters& wanted) {
  return std::ranges::all_of(wanted, [&parameters](const Parameter& setting) {
    const Parameter* const held = find(parameters, setting.id);
    return held != nullptr && held->value == setting.value;
  });
}

// `held_id` is a parameter that the daemon has.
void write_and_read_back(ParameterClient& client, const Parameters& settings, std::uint32_t held_id) {
  milliseconds pause = first_pause;
  for (int attempt = 0; attempt < write_attempts; ++attempt) {
    if (attempt > 0) {
      client.session().process_until(RequestSession::Clock::now() + shortened(pause));
      pause = std::min(2 * pause, longest_pause);
    }
    const auto begin = RequestSession::Clock::now();
    client.write(settings);
    if (holds_all(client.read(settings, held_id), settings)) {
      return;
    }
    if (RequestSession::Clock::now() - begin >= abandoned_after) {
      throw Failure(ExitCode::time_out,
                    "the other side of the ports has not replied; the parameters keep their values");
    }
  }
  throw Failure(
      ExitCode::refused,
      "refused: the daemon could not write to its port or was busy with other writes, the other side "
      "of the ports keeps the old values, or the broker's access rules deny the write");
}

}  // namespace

ExitCode param_get(const Options& options) {
  std::vector<std::uint32_t> ids;
  std::ranges::transform(options.arguments, std::back_inserter(ids), id_of_argument);
  ParameterClient client(options);
  const Parameters parameters = client.read();
  std::string missing;
  for (const std::uint32_t id : ids) {
    const Parameter* const found = find(parameters, id);
    if (found == nullptr) {
      missing += (missing.empty() ? "" : ", ") + shown_id(id);
    } else if (ids.size() == 1 && !options.json) {
      print_value(options, found->value);
    } else {
      print_line(options, *found);
    }
  }
  if (!missing.empty()) {
    throw Failure(ExitCode::unknown, parameters.empty() ? nothing_received : "no such parameter: " + missing);
  }
  return ExitCode::done;
}

ExitCode param_list(const Options& options) {
  ParameterClient client(options);
  const Parameters parameters = client.read();
  if (parameters.empty()) {
    tools::note(nothing_received);
  }
  if (options.json) {
    for (const Parameter& parameter : parameters) {
      print_line(options, parameter);
    }
    return ExitCode::done;
  }
  TextTable table({"ID", "BYTES", "VALUE"});
  for (const Parameter& parameter : parameters) {
    table.add({shown_id(parameter.id), std::to_string(parameter.value.size()), shown_value(parameter.value)});
  }
  table.print(std::cout, OutputStyle::of_standard_output());
  return ExitCode::done;
}

ExitCode param_set(const Options& options) {
  const Parameters settings = settings_of(options.arguments);
  ParameterClient client(options);
  const auto time_limit = options.timeout.value_or(write_timeout);
  if (client.daemon_on_line()) {
    client.session().set_time_limit(time_limit);  // the daemon may be busy with another client's write
  }
  const Parameters before = client.read();
  client.session().set_time_limit(time_limit);
  if (before.empty()) {
    throw Failure(ExitCode::refused,
                  std::string(nothing_received) + "; until then the daemon does not write any");
  }
  if (!holds_all(before, settings)) {
    write_and_read_back(client, settings, before.back().id);
  }
  for (const Parameter& setting : settings) {
    print_line(options, setting);
  }
  return ExitCode::done;
}

}  // namespace ecu::ctl
