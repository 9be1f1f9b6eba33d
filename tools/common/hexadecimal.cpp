#include "common/hexadecimal.h"

#include <array>
#include <charconv>

namespace ecu::tools {

std::string to_hex(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const char byte : bytes) {
    const auto number = static_cast<std::uint8_t>(byte);
    text += digits[number >> 4U];
    text += digits[number & 0xfU];
  }
  return text;
}

std::optional<char> parse_hex_byte(std::string_view two_digits) {
  std::uint8_t number = 0;
  const char* const end = two_digits.data() + two_digits.size();
  const auto [stop, error] = std::from_chars(two_digits.data(), end, number, 16);
  return two_digits.size() == 2 && error == std::errc() && stop == end
             ? std::optional(static_cast<char>(number))
             : std::nullopt;
}

std::optional<std::string> from_hex(std::string_view digits) {
  std::string bytes;
  while (!digits.empty()) {
    if (digits.front() == ' ') {
      digits.remove_prefix(1);
      continue;
    }
    const auto byte = parse_hex_byte(digits.substr(0, 2));
    if (!byte) {
      return std::nullopt;
    }
    bytes += *byte;
    digits.remove_prefix(2);
  }
  return bytes;
}

std::string to_hex_number(std::uint64_t number) {
  std::array<char, 16> text{};
  const auto result = std::to_chars(text.data(), text.data() + text.size(), number, 16);
  return {text.data(), result.ptr};
}

}  // namespace ecu::tools
