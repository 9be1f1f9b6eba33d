#include <iostream>

#include "quilctl/commands/commands.h"
#include "quilctl/model/variable_rows.h"

namespace ecu::ctl {

namespace {

void print(const tools::VariableInfo& info) {
  std::cout << info.name << "\n  " << info.meaning << "\n  topic      " << info.topic() << "\n  form       "
            << info.form.description << "\n  source     " << info.sources_text()
            << (info.signal.empty() ? "" : ", signal ") << info.signal << "\n  published  "
            << info.published_when << "\n  example    " << info.example << '\n';
}

}  // namespace

ExitCode describe(const Options& options) {
  require_known(variable_rows({}), options.arguments);
  for (const VariableRow& row : variable_rows({}, options.arguments)) {
    if (options.json) {
      print_json(json_of(*row.info));
    } else {
      print(*row.info);
    }
  }
  return ExitCode::done;
}

}  // namespace ecu::ctl
