#include <iostream>

#include "quilctl/commands/commands.h"
#include "quilctl/model/values.h"
#include "quilctl/model/variable_catalogue.h"

namespace ecu::ctl {

namespace {

void print(const VariableInfo& info) {
  std::cout << info.name << "\n  " << info.meaning << "\n  topic      " << info.topic() << "\n  form       "
            << info.form.description << "\n  source     " << info.sources_text()
            << (info.signal.empty() ? "" : ", signal ") << info.signal << "\n  published  "
            << info.published_when << "\n  example    " << info.example << '\n';
}

}  // namespace

ExitCode describe(const Options& options) {
  const std::vector<std::string>& names = options.arguments;
  if (!names.empty() && find_variable(names.front()) == nullptr) {
    throw Failure(ExitCode::unknown, "no variable is named " + names.front());
  }
  for (const VariableInfo& info : variables()) {
    if (!names.empty() && info.name != names.front()) {
      continue;
    }
    if (options.json) {
      print_json(json_of(info));
    } else {
      print(info);
    }
  }
  return ExitCode::done;
}

}  // namespace ecu::ctl
