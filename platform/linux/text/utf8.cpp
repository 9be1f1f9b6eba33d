#include <ecu/tamu/text/utf8.h>

namespace ecu::tamu::text {

namespace {

constexpr unsigned bits_per_byte = 6;  // of the code, in each byte after the first

constexpr bool is_surrogate(char32_t code) noexcept {
  return code >= 0xd800 && code < 0xe000;
}

}  // namespace

Character first_character(std::string_view text) noexcept {
  const auto lead = static_cast<unsigned char>(text.front());
  if (lead < 0x80) {
    return {1, lead};
  }
  const std::size_t size = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
  if (lead < 0xc2 || lead > 0xf4 || text.size() < size) {
    return {};
  }
  char32_t code = lead & (0x7fU >> size);
  for (const char next : text.substr(1, size - 1)) {
    const auto byte = static_cast<unsigned char>(next);
    if ((byte & 0xc0U) != 0x80) {
      return {};
    }
    code = code << bits_per_byte | (byte & 0x3fU);
  }
  constexpr std::array<char32_t, 5> smallest = {0, 0, 0x80, 0x800, 0x10000};
  const bool is_valid = code >= smallest[size] && code <= 0x10ffff && !is_surrogate(code);
  return is_valid ? Character{size, code} : Character{};
}

}  // namespace ecu::tamu::text
