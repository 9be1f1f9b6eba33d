#include "common/escaping.h"

#include <ecu/tamu/text/utf8.h>

#include "common/hexadecimal.h"

namespace ecu::tools {

namespace text = tamu::text;

namespace {

// A terminal obeys control characters and line ends. Characters that change the direction of writing can hide
// other text.
bool must_be_escaped(char32_t code) noexcept {
  const bool is_line_end = code == 0x2028 || code == 0x2029;
  const bool is_direction = code == 0x61c || code == 0x200e || code == 0x200f ||
                            (code >= 0x202a && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069);
  return text::is_control(code) || is_line_end || is_direction;
}

}  // namespace

bool is_utf8(std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const std::size_t size = text::first_character(bytes).size;
    if (size == 0) {
      return false;
    }
    bytes.remove_prefix(size);
  }
  return true;
}

std::string printable(std::string_view bytes) {
  std::string result;
  while (!bytes.empty()) {
    const auto [size, code] = text::first_character(bytes);
    const std::size_t count = size == 0 ? 1 : size;
    if (code == U'\\') {
      result += R"(\\)";
    } else if (size == 0 || must_be_escaped(code)) {
      for (const char byte : bytes.substr(0, count)) {
        const auto escape = text::hex_escape(byte);
        result.append(escape.data(), escape.size());
      }
    } else {
      result += bytes.substr(0, count);
    }
    bytes.remove_prefix(count);
  }
  return result;
}

std::optional<std::string> from_printable(std::string_view text) {
  std::string bytes;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '\\') {
      bytes += text[at];
    } else if (text.substr(at, 2) == R"(\\)") {
      bytes += '\\';
      at += 1;
    } else {
      const auto byte = text.substr(at, 2) == R"(\x)" ? parse_hex_byte(text.substr(at + 2, 2)) : std::nullopt;
      if (!byte) {
        return std::nullopt;
      }
      bytes += *byte;
      at += 3;
    }
  }
  return bytes;
}

}  // namespace ecu::tools
