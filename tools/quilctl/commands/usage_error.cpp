#include "quilctl/commands/usage_error.h"

#include <algorithm>
#include <iostream>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "quilctl/base/notes.h"

namespace ecu::ctl {

namespace {

// A command at a greater distance is not what the user meant.
constexpr std::size_t max_edit_distance = 2;

// The Levenshtein distance: how many letters to insert, delete or replace to get from one word to the other.
std::size_t edit_distance(std::string_view word, std::string_view right) {
  std::vector<std::size_t> counts(right.size() + 1);  // for each prefix of `right`
  std::iota(counts.begin(), counts.end(), std::size_t{0});
  for (const char letter : word) {
    std::size_t before = counts[0]++;
    for (std::size_t i = 1; i < counts.size(); ++i) {
      const std::size_t replaced = before + (letter == right[i - 1] ? 0 : 1);
      before = counts[i];
      counts[i] = std::min({counts[i] + 1, counts[i - 1] + 1, replaced});
    }
  }
  return counts.back();
}

// The nearest command of `group`; empty when none is near.
std::string nearest_command(const CLI::App& group, const std::string& word) {
  std::string nearest;
  std::size_t least = max_edit_distance + 1;
  for (const CLI::App* const command : group.get_subcommands({})) {
    if (const std::size_t distance = edit_distance(word, command->get_name()); distance < least) {
      nearest = command->get_name();
      least = distance;
    }
  }
  return nearest;
}

// The innermost command on the command line.
const CLI::App& called(const CLI::App& app) {
  const auto commands = app.get_subcommands();
  return commands.empty() ? app : called(*commands.front());
}

std::string path_of(const CLI::App& command) {
  const CLI::App* const parent = command.get_parent();
  return (parent == nullptr ? "" : path_of(*parent) + ' ') + command.get_name();
}

std::string missing_command(const CLI::App& app) {
  const auto words = app.remaining(true);
  if (words.empty()) {
    return "a command is missing";
  }
  const std::string& word = words.front();
  const std::string nearest = nearest_command(called(app), word);
  return (word.starts_with('-') ? "unknown option '" : "unknown command '") + word + '\'' +
         (nearest.empty() ? "" : "; did you mean '" + nearest + "'?");
}

// The library names the option, even when its value comes from an environment variable.
std::string with_origin(const CLI::App& app, const std::string& text,
                        std::span<const char* const> arguments) {
  for (const CLI::Option* const option : app.get_options()) {
    const std::string name = option->get_name();
    const bool is_given =
        std::ranges::any_of(arguments, [&name](std::string_view word) { return word.starts_with(name); });
    if (!option->get_envname().empty() && !is_given && text.starts_with(name + ':')) {
      return option->get_envname() + text.substr(name.size());
    }
  }
  return text;
}

}  // namespace

void report_usage_error(const CLI::App& app, const CLI::ParseError& error,
                        std::span<const char* const> arguments) {
  const CLI::App& command = called(app);
  const bool lacks_command =
      dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && command.get_require_subcommand_min() > 0;
  note(lacks_command ? missing_command(app) : with_origin(app, error.what(), arguments));
  std::cerr << path_of(command) << " --help shows the usage" << std::endl;
}

}  // namespace ecu::ctl
