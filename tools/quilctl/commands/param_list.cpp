#include <iostream>

#include "common/notes.h"
#include "quilctl/commands/commands.h"
#include "quilctl/commands/parameter_output.h"
#include "quilctl/model/values.h"
#include "quilctl/screen/text_table.h"
#include "quilctl/talk/parameter_client.h"

namespace ecu::ctl {

ExitCode param_list(const Options& options) {
  ParameterClient client(options, parameter_read_timeout);
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

}  // namespace ecu::ctl
