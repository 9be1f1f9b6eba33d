#include "quilctl/model/values.h"

#include <unistd.h>

#include <iostream>

#include "common/escaping.h"
#include "common/hexadecimal.h"

namespace ecu::ctl {

Json json_value(const std::optional<std::string>& value) {
  if (!value) {
    return nullptr;
  }
  return tools::is_utf8(*value) ? Json(*value) : Json{{"hex", tools::to_hex(*value)}};
}

std::string shown_value(const std::optional<std::string>& value) {
  if (!value) {
    return "(no value)";
  }
  return value->empty() ? "\"\"" : tools::printable(*value);
}

void print_value(const Options& options, const std::string& value) {
  std::cout << (options.raw ? value : tools::printable(value) + '\n');
}

void print_json(const Json& object) {
  const bool is_terminal = ::isatty(STDOUT_FILENO) == 1;
  std::cout << object.dump(-1, ' ', is_terminal) << std::endl;
}

}  // namespace ecu::ctl
