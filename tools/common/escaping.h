#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Values are arbitrary bytes. These functions make them readable on a terminal.
namespace ecu::tools {

/// Whether `bytes` are UTF-8 text (RFC 3629).
[[nodiscard]] bool is_utf8(std::string_view bytes) noexcept;

/// `bytes` as one line of text. A backslash is doubled. Written as `\xNN` are: bytes that are not UTF-8, and
/// the bytes of control characters, of line ends and of characters that change the direction of writing.
/// Different bytes give different texts.
[[nodiscard]] std::string printable(std::string_view bytes);

/// The inverse of `printable`; nothing for a text that has an invalid escape.
[[nodiscard]] std::optional<std::string> from_printable(std::string_view text);

}  // namespace ecu::tools
