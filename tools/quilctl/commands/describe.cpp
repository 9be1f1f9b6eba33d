#include <iostream>

#include "quilctl/commands/commands.h"
#include "quilctl/model/values.h"
#include "quilctl/model/variable_catalogue.h"

namespace ecu::ctl {

namespace {

void print(const VariableInfo& info) {
  std::cout << info.name << "\n  " << info.meaning << "\n  kind       " << info.kind << "\n  source     "
            << (info.source_topic.empty() ? "-" : info.source_topic)
            << (info.signal.empty() ? "" : ", signal ") << info.signal << "\n  published  "
            << info.published_when << "\n  example    " << info.example << '\n';
}

Json json_of(const VariableInfo& info) {
  return {{"name", info.name},      {"meaning", info.meaning}, {"source", info.source_topic},
          {"signal", info.signal},  {"kind", info.kind},       {"published_when", info.published_when},
          {"example", info.example}};
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
