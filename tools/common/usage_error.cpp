#include "common/usage_error.h"

#include <algorithm>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "common/nearest_word.h"

namespace ecu::tools {

namespace {

// The innermost command on the command line.
const CLI::App& called(const CLI::App& app) {
  const auto commands = app.get_subcommands();
  return commands.empty() ? app : called(*commands.front());
}

std::string path_of(const CLI::App& command) {
  const CLI::App* const parent = command.get_parent();
  return (parent == nullptr ? "" : path_of(*parent) + ' ') + command.get_name();
}

// Names the first word that nothing on the command line takes.
std::string unknown_word(const CLI::App& app) {
  const auto words = app.remaining(true);
  if (words.empty()) {
    return "a command is missing";
  }
  const std::string& word = words.front();
  if (word.starts_with('-')) {
    return "unknown option '" + word + '\'';
  }
  std::vector<std::string> names;
  for (const CLI::App* const command : called(app).get_subcommands({})) {
    names.push_back(command->get_name());
  }
  return (names.empty() ? "unexpected argument '" : "unknown command '") + word + '\'' +
         did_you_mean(word, names);
}

// The library names the option, even when its value comes from an environment variable.
std::string with_origin(const CLI::App& app, const std::string& text,
                        std::span<const char* const> arguments) {
  for (const CLI::Option* const option : app.get_options()) {
    const std::string name = option->get_name();
    const auto& letters = option->get_snames();
    const bool is_word =
        is_given(name, arguments) || (!letters.empty() && is_given('-' + letters.front(), arguments));
    if (!option->get_envname().empty() && !is_word && text.starts_with(name + ':')) {
      return option->get_envname() + text.substr(name.size());
    }
  }
  return text;
}

}  // namespace

bool is_given(std::string_view option, std::span<const char* const> arguments) {
  return std::ranges::any_of(arguments, [=](std::string_view word) { return word.starts_with(option); });
}

void report_usage_error(const CLI::App& app, const CLI::ParseError& error,
                        std::span<const char* const> arguments) {
  const CLI::App& command = called(app);
  const bool is_about_words = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr ||
                              (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr &&
                               command.get_require_subcommand_min() > 0);
  std::cerr << app.get_name() << ": "
            << (is_about_words ? unknown_word(app) : with_origin(app, error.what(), arguments)) << '\n'
            << path_of(command) << " --help shows the usage" << std::endl;
}

}  // namespace ecu::tools
