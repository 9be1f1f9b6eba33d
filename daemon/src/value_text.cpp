#include <algorithm>
#include <cctype>

#include <ecu/quil/value_text.h>

namespace ecu::quil {

bool is_unset(std::span<const std::uint8_t> bytes) {
  const auto all = [bytes](std::uint8_t value) {
    return std::all_of(bytes.begin(), bytes.end(), [value](std::uint8_t byte) { return byte == value; });
  };
  return all(0xff) || all(0x00);
}

std::string text_until_zero(std::span<const std::uint8_t> bytes) {
  return {bytes.begin(), std::find(bytes.begin(), bytes.end(), 0)};
}

std::string lower_case(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

}  // namespace ecu::quil
