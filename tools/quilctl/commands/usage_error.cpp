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

// A word that differs in more letters is none that was meant.
constexpr std::size_t most_wrong_letters = 2;

// How many letters have to be inserted, left out or replaced to make one word of the other.
std::size_t wrong_letters(std::string_view word, std::string_view right) {
  std::vector<std::size_t> counts(right.size() + 1);  // for each beginning of the right one
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

// Of `group`; empty when none is near.
std::string nearest_command(const CLI::App& group, const std::string& word) {
  std::string nearest;
  std::size_t least = most_wrong_letters + 1;
  for (const CLI::App* const command : group.get_subcommands({})) {
    if (const std::size_t wrong = wrong_letters(word, command->get_name()); wrong < least) {
      nearest = command->get_name();
      least = wrong;
    }
  }
  return nearest;
}

// The innermost of the commands that were called first.
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
  return (word.starts_with('-') ? "no option '" : "no command '") + word + '\'' +
         (nearest.empty() ? "" : "; did you mean '" + nearest + "'?");
}

// The library names the option, also where an environment variable has stood in for it.
std::string with_origin(const CLI::App& app, const std::string& text, std::span<const char* const> words) {
  for (const CLI::Option* const option : app.get_options()) {
    const std::string name = option->get_name();
    const bool is_given =
        std::ranges::any_of(words, [&name](std::string_view word) { return word.starts_with(name); });
    if (!option->get_envname().empty() && !is_given && text.starts_with(name + ':')) {
      return option->get_envname() + text.substr(name.size());
    }
  }
  return text;
}

}  // namespace

void tell_usage_error(const CLI::App& app, const CLI::ParseError& error, std::span<const char* const> words) {
  const CLI::App& command = called(app);
  const bool lacks_command =
      dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && command.get_require_subcommand_min() > 0;
  note(lacks_command ? missing_command(app) : with_origin(app, error.what(), words));
  std::cerr << path_of(command) << " --help shows the usage" << std::endl;
}

}  // namespace ecu::ctl
