#include "quilctl/model/values.h"

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
  if (options.raw) {
    std::cout << value;
  } else {
    std::cout << tools::printable(value) << '\n';
  }
}

void print_json(const Json& object) {
  std::cout << object.dump() << std::endl;
}

}  // namespace ecu::ctl
