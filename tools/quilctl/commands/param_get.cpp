#include <algorithm>
#include <iterator>

#include "quilctl/base/value_input.h"
#include "quilctl/commands/commands.h"
#include "quilctl/commands/parameter_output.h"
#include "quilctl/model/values.h"
#include "quilctl/talk/parameter_client.h"

namespace ecu::ctl {

ExitCode param_get(const Options& options) {
  std::vector<std::uint32_t> ids;
  std::ranges::transform(options.arguments, std::back_inserter(ids), id_of_argument);
  ParameterClient client(options, parameter_read_timeout);
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

}  // namespace ecu::ctl
