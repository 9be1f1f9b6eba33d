#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace ecu::tamu::text {

/// A character of a text in UTF-8.
struct Character {
  std::size_t size = 0;  // in bytes, 1 to 4; 0: the bytes are not UTF-8
  char32_t code = 0;
};

/// The character at the beginning of `text`, which must not be empty. Accepts well-formed UTF-8 only (RFC
/// 3629): no overlong form, no surrogate, nothing above U+10FFFF.
[[nodiscard]] Character first_character(std::string_view text) noexcept;

/// Whether `code` is a control character: U+0000 to U+001F or U+007F to U+009F.
[[nodiscard]] constexpr bool is_control(char32_t code) noexcept {
  return code < 0x20 || (code >= 0x7f && code < 0xa0);
}

/// A byte as `\xNN`, in lower-case digits.
[[nodiscard]] constexpr std::array<char, 4> hex_escape(char byte) noexcept {
  constexpr std::string_view digits = "0123456789abcdef";
  const auto number = static_cast<unsigned char>(byte);
  return {'\\', 'x', digits[number >> 4U], digits[number & 0xfU]};
}

}  // namespace ecu::tamu::text
