#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Identifiers and values of system parameters as the user gives them.
namespace ecu::ctl {

/// A parameter's identifier: decimal, or hexadecimal after "0x"; at most 32 bits; nothing for any other text.
[[nodiscard]] std::optional<std::uint32_t> parse_id(std::string_view text);

/// A value on the command line: text, "hex:" and its bytes, or "@" and a file that holds it. Throws `Failure`
/// when the digits are invalid or the value is too large, `tools::InputError` when the file cannot be read.
[[nodiscard]] std::string value_of_argument(std::string_view argument);

}  // namespace ecu::ctl
