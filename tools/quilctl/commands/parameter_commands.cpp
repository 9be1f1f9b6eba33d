#include <algorithm>
#include <iostream>
#include <set>
#include <string>
#include <utility>

#include "quilctl/base/files.h"
#include "quilctl/base/notes.h"
#include "quilctl/base/text.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/values.h"
#include "quilctl/screen/text_table.h"
#include "quilctl/talk/parameter_client.h"

namespace ecu::ctl {

namespace {

using std::chrono::seconds;

constexpr seconds read_timeout{5};
// The daemon gives a write up after 30 s, and answers nobody meanwhile.
constexpr seconds write_timeout{35};
constexpr seconds daemon_gives_up{29};

constexpr const char* nothing_has_come = "nothing has come from the other side of the ports yet";

std::string shown_id(std::uint32_t id) {
  return "0x" + to_hex_number(id);
}

Json json_of(const Parameter& parameter) {
  return {{"id", parameter.id}, {"hex_id", shown_id(parameter.id)}, {"value", json_value(parameter.value)}};
}

void print_line(const Options& options, const Parameter& parameter) {
  if (options.json) {
    print_json(json_of(parameter));
  } else {
    std::cout << shown_id(parameter.id) << "  " << shown_value(parameter.value) << '\n';
  }
}

std::uint32_t id_of(const std::string& word) {
  const auto id = parse_id(word);
  if (!id) {
    throw Failure(ExitCode::usage,
                  "'" + word + "' is no identifier: decimal or 0x and hexadecimal, at most 32 bits");
  }
  return *id;
}

Parameter setting_of(const std::string& word) {
  const std::size_t separator = word.find('=');
  if (separator == std::string::npos) {
    throw Failure(ExitCode::usage, "'" + word + "' is not of the form ID=VALUE");
  }
  Parameter setting{id_of(word.substr(0, separator)), value_of_argument(word.substr(separator + 1))};
  require_value_size(setting.value.size());
  return setting;
}

Parameters settings_of(const std::vector<std::string>& words) {
  Parameters settings;
  std::set<std::uint32_t> ids;
  for (const std::string& word : words) {
    settings.push_back(setting_of(word));
    if (!ids.insert(settings.back().id).second) {
      throw Failure(ExitCode::usage, shown_id(settings.back().id) + " is given twice");
    }
  }
  return settings;
}

bool holds_all(const Parameters& parameters, const Parameters& wanted) {
  return std::ranges::all_of(wanted, [&parameters](const Parameter& setting) {
    const Parameter* const held = find(parameters, setting.id);
    return held != nullptr && held->value == setting.value;
  });
}

// The daemon discards a write that comes while another's is under way. Of those that try at the same time one
// gets through each time.
constexpr int write_attempts = 8;

// `held_id` is a parameter that the daemon has.
void write_and_read_back(ParameterTalk& talk, const Parameters& settings, std::uint32_t held_id) {
  std::vector<std::uint32_t> ids;
  std::ranges::transform(settings, std::back_inserter(ids), &Parameter::id);
  for (int attempt = 0; attempt < write_attempts; ++attempt) {
    const auto begin = Conversation::Clock::now();
    talk.write(settings);
    if (holds_all(talk.read(ids, held_id), settings)) {
      return;
    }
    if (Conversation::Clock::now() - begin >= daemon_gives_up) {
      throw Failure(ExitCode::time_out, "the other side of the ports has not answered; the old values hold");
    }
  }
  throw Failure(
      ExitCode::refused,
      "refused: the daemon could not write it, was busy with other writes, the other side of the ports keeps "
      "the old values, or the broker's access rules kept the write back");
}

}  // namespace

ExitCode param_get(const Options& options) {
  std::vector<std::uint32_t> ids;
  std::ranges::transform(options.words, std::back_inserter(ids), id_of);
  ParameterTalk talk(options, read_timeout);
  const Parameters parameters = talk.read();
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
    throw Failure(ExitCode::unknown, parameters.empty() ? nothing_has_come : "no such parameter: " + missing);
  }
  return ExitCode::done;
}

ExitCode param_list(const Options& options) {
  ParameterTalk talk(options, read_timeout);
  const Parameters parameters = talk.read();
  if (parameters.empty()) {
    note(nothing_has_come);
  }
  if (options.json) {
    for (const Parameter& parameter : parameters) {
      print_json(json_of(parameter));
    }
    return ExitCode::done;
  }
  Table table({"ID", "BYTES", "VALUE"});
  for (const Parameter& parameter : parameters) {
    table.add({shown_id(parameter.id), std::to_string(parameter.value.size()), shown_value(parameter.value)});
  }
  table.print(std::cout, OutputStyle::of_standard_output());
  return ExitCode::done;
}

ExitCode param_set(const Options& options) {
  const Parameters settings = settings_of(options.words);
  ParameterTalk talk(options, read_timeout);
  const auto time_limit = options.timeout.value_or(write_timeout);
  if (talk.daemon_on_line()) {
    talk.conversation().allow(time_limit);  // it may be busy with another's write
  }
  const Parameters before = talk.read();
  talk.conversation().allow(time_limit);
  if (before.empty()) {
    throw Failure(ExitCode::refused,
                  std::string(nothing_has_come) + ", and the daemon writes nothing before");
  }
  if (!holds_all(before, settings)) {
    write_and_read_back(talk, settings, before.back().id);
  }
  for (const Parameter& setting : settings) {
    print_line(options, setting);
  }
  return ExitCode::done;
}

}  // namespace ecu::ctl
