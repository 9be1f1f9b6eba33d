#include "quilctl/commands/parameter_output.h"

#include <iostream>

#include "common/hexadecimal.h"
#include "quilctl/base/value_input.h"
#include "quilctl/model/values.h"

namespace ecu::ctl {

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

}  // namespace ecu::ctl
