#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <string_view>

/// Values and identifiers as the user gives them. A value is that of a system parameter or of the secure
/// storage.
namespace ecu::ctl {

/// A parameter's identifier: decimal, or hexadecimal after "0x"; at most 32 bits; nothing for any other text.
[[nodiscard]] std::optional<std::uint32_t> parse_id(std::string_view text);

/// A value on the command line: text, "hex:" and its bytes, or "@" and a file that holds it. Throws `Failure`
/// when the digits are invalid or the value is too large, `tools::InputError` when the file cannot be read.
[[nodiscard]] std::string value_of_argument(std::string_view argument);

/// The contents of a file, or of a stream that error texts call `name`, as a value. Throws
/// `tools::InputError` when it cannot be read or is too large.
[[nodiscard]] std::string read_value_file(const std::string& path);
[[nodiscard]] std::string read_value_stream(std::istream& input, const std::string& name);

}  // namespace ecu::ctl
