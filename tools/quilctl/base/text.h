#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Values are any bytes; this is how people read and write them.
namespace ecu::ctl {

/// Whether `bytes` are UTF-8 text (RFC 3629).
[[nodiscard]] bool is_utf8(std::string_view bytes) noexcept;

/// `bytes` as one line of text: a backslash is doubled; the bytes of a character that ends a line, steers a
/// terminal or turns the direction of writing, and those that are not part of UTF-8 text, are `\xNN`. No two
/// texts look the same.
[[nodiscard]] std::string printable(std::string_view bytes);

/// Takes `printable` back; nothing when it has not made that text.
[[nodiscard]] std::optional<std::string> from_printable(std::string_view text);

/// Lower-case hexadecimal, two digits a byte, and back; blanks may stand between bytes.
[[nodiscard]] std::string to_hex(std::string_view bytes);
[[nodiscard]] std::optional<std::string> from_hex(std::string_view digits);

/// Lower-case hexadecimal without prefix.
[[nodiscard]] std::string to_hex_number(std::uint64_t number);

/// A parameter's identifier: decimal, or hexadecimal behind "0x"; nothing else, and at most 32 bits.
[[nodiscard]] std::optional<std::uint32_t> parse_id(std::string_view text);

/// A value on the command line: text, "hex:" and its bytes, or "@" and a file that holds it. Throws `Failure`
/// when the digits are none or the file cannot be read.
[[nodiscard]] std::string value_of_argument(std::string_view argument);

/// Whether `name` is of the form of `pattern`, in which `*` stands for any characters and `?` for any one.
[[nodiscard]] bool matches_pattern(std::string_view name, std::string_view pattern);

/// How many columns of a terminal a UTF-8 text takes, and its beginning that fits, an ellipsis included.
[[nodiscard]] std::size_t display_width(std::string_view text);
[[nodiscard]] std::string cut_to_width(std::string_view text, std::size_t width);

/// In the largest unit that fits: "3 s", "5 min", "2 h", "4 d".
[[nodiscard]] std::string age_text(std::chrono::nanoseconds age);

}  // namespace ecu::ctl
