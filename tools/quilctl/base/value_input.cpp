#include "quilctl/base/value_input.h"

#include <utility>

#include <ecu/tamu/com/system_parameters.h>
#include <ecu/tamu/text/parse_number.h>

#include "common/hexadecimal.h"
#include "common/input_file.h"
#include "quilctl/base/failure.h"

namespace ecu::ctl {

using tamu::com::max_parameter_value_size;

namespace {

std::string unchecked_value(std::string_view argument) {
  constexpr std::string_view hex_prefix = "hex:";
  if (argument.starts_with('@')) {
    return tools::read_file(std::string(argument.substr(1)), max_parameter_value_size);
  }
  if (!argument.starts_with(hex_prefix)) {
    return std::string(argument);
  }
  auto bytes = tools::from_hex(argument.substr(hex_prefix.size()));
  if (!bytes) {
    throw Failure(ExitCode::usage, "'" + std::string(argument) + "': each byte needs two hexadecimal digits");
  }
  return std::move(*bytes);
}

}  // namespace

std::optional<std::uint32_t> parse_id(std::string_view text) {
  const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
  const std::string_view number = text.substr(is_hex ? 2 : 0);
  return tamu::text::parse_number<std::uint32_t>(number, is_hex ? 16 : 10);
}

std::string value_of_argument(std::string_view argument) {
  std::string value = unchecked_value(argument);
  if (value.size() > max_parameter_value_size) {
    throw Failure(ExitCode::usage,
                  "a value has at most " + std::to_string(max_parameter_value_size) + " bytes");
  }
  return value;
}

}  // namespace ecu::ctl
