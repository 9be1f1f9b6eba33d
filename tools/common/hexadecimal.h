#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ecu::tools {

/// Bytes as lower-case hexadecimal digits, two for each byte.
[[nodiscard]] std::string to_hex(std::string_view bytes);

/// The inverse, in either case, with spaces allowed between bytes; nothing for any other text.
[[nodiscard]] std::optional<std::string> from_hex(std::string_view digits);

/// A byte from exactly two hexadecimal digits.
[[nodiscard]] std::optional<char> parse_hex_byte(std::string_view two_digits);

/// Lower-case hexadecimal without prefix.
[[nodiscard]] std::string to_hex_number(std::uint64_t number);

}  // namespace ecu::tools
