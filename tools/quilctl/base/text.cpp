#include "quilctl/base/text.h"

#include <fnmatch.h>

#include <array>
#include <charconv>
#include <utility>

#include "quilctl/base/failure.h"
#include "quilctl/base/files.h"

namespace ecu::ctl {

namespace {

constexpr std::string_view digits = "0123456789abcdef";

struct Character {
  std::size_t size = 0;  // in bytes; 0: no UTF-8
  char32_t code = 0;
};

std::uint8_t byte_at(std::string_view text, std::size_t at) noexcept {
  return static_cast<std::uint8_t>(text[at]);
}

// The character at the beginning of `text`, which is not empty.
Character first_character(std::string_view text) noexcept {
  const std::uint8_t lead = byte_at(text, 0);
  if (lead < 0x80) {
    return {1, lead};
  }
  const std::size_t size = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
  if (lead < 0xc2 || lead > 0xf4 || text.size() < size) {
    return {};
  }
  char32_t code = lead & (0x7fU >> size);
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte_at(text, i) & 0xc0U) != 0x80) {
      return {};
    }
    code = code << 6U | (byte_at(text, i) & 0x3fU);
  }
  constexpr std::array<char32_t, 5> smallest = {0, 0, 0x80, 0x800, 0x10000};
  const bool is_surrogate = code >= 0xd800 && code < 0xe000;
  return code < smallest[size] || is_surrogate || code > 0x10ffff ? Character() : Character{size, code};
}

// What a terminal obeys instead of showing it: control characters, other ends of a line, and what turns the
// direction of writing, behind which a text can hide another.
bool is_control(char32_t code) noexcept {
  const bool is_line_end = code == 0x2028 || code == 0x2029;
  const bool is_direction = code == 0x61c || code == 0x200e || code == 0x200f ||
                            (code >= 0x202a && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069);
  return code < 0x20 || (code >= 0x7f && code < 0xa0) || is_line_end || is_direction;
}

void append_hex(std::string& text, char byte) {
  const auto number = static_cast<std::uint8_t>(byte);
  text += digits[number >> 4U];
  text += digits[number & 0xfU];
}

std::optional<char> byte_of(std::string_view two_digits) {
  std::uint8_t number = 0;
  const char* const end = two_digits.data() + two_digits.size();
  const auto [stop, error] = std::from_chars(two_digits.data(), end, number, 16);
  return two_digits.size() == 2 && error == std::errc() && stop == end
             ? std::optional(static_cast<char>(number))
             : std::nullopt;
}

// Wide characters of scripts that need two columns; what combines with the one before needs none.
std::size_t width_of(char32_t code) {
  const bool is_combining =
      (code >= 0x300 && code < 0x370) || (code >= 0x200b && code < 0x2010) || code == 0xfeff;
  const bool is_wide = (code >= 0x1100 && code < 0x1160) || (code >= 0x2e80 && code < 0xa4d0) ||
                       (code >= 0xac00 && code < 0xd7a4) || (code >= 0xf900 && code < 0xfb00) ||
                       (code >= 0xfe30 && code < 0xfe70) || (code >= 0xff00 && code < 0xff61) ||
                       (code >= 0x1f300 && code < 0x1f650) || (code >= 0x20000 && code < 0x30000);
  return is_combining ? 0 : is_wide ? 2 : 1;
}

}  // namespace

bool is_utf8(std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const std::size_t size = first_character(bytes).size;
    if (size == 0) {
      return false;
    }
    bytes.remove_prefix(size);
  }
  return true;
}

std::string printable(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) {
    const auto [size, code] = first_character(bytes);
    const std::size_t count = size == 0 ? 1 : size;
    if (code == U'\\') {
      text += R"(\\)";
    } else if (size == 0 || is_control(code)) {
      for (const char byte : bytes.substr(0, count)) {
        text += R"(\x)";
        append_hex(text, byte);
      }
    } else {
      text += bytes.substr(0, count);
    }
    bytes.remove_prefix(count);
  }
  return text;
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
      const auto byte = text.substr(at, 2) == R"(\x)" ? byte_of(text.substr(at + 2, 2)) : std::nullopt;
      if (!byte) {
        return std::nullopt;
      }
      bytes += *byte;
      at += 3;
    }
  }
  return bytes;
}

std::string to_hex(std::string_view bytes) {
  std::string text;
  text.reserve(2 * bytes.size());
  for (const char byte : bytes) {
    append_hex(text, byte);
  }
  return text;
}

std::optional<std::string> from_hex(std::string_view text) {
  std::string bytes;
  while (!text.empty()) {
    if (text.front() == ' ') {
      text.remove_prefix(1);
      continue;
    }
    const auto byte = byte_of(text.substr(0, 2));
    if (!byte) {
      return std::nullopt;
    }
    bytes += *byte;
    text.remove_prefix(2);
  }
  return bytes;
}

std::string to_hex_number(std::uint64_t number) {
  std::array<char, 16> text{};
  const auto result = std::to_chars(text.data(), text.data() + text.size(), number, 16);
  return {text.data(), result.ptr};
}

std::optional<std::uint32_t> parse_id(std::string_view text) {
  const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
  const std::string_view number = text.substr(is_hex ? 2 : 0);
  std::uint32_t id = 0;
  const char* const end = number.data() + number.size();
  const auto [stop, error] = std::from_chars(number.data(), end, id, is_hex ? 16 : 10);
  return !number.empty() && error == std::errc() && stop == end ? std::optional(id) : std::nullopt;
}

std::string value_of_argument(std::string_view argument) {
  constexpr std::string_view hex_prefix = "hex:";
  if (argument.starts_with(hex_prefix)) {
    auto bytes = from_hex(argument.substr(hex_prefix.size()));
    if (!bytes) {
      throw Failure(ExitCode::usage,
                    "'" + std::string(argument) + "': two hexadecimal digits a byte are needed");
    }
    return std::move(*bytes);
  }
  if (!argument.starts_with('@')) {
    return std::string(argument);
  }
  return read_file(std::string(argument.substr(1)));
}

bool matches_pattern(std::string_view name, std::string_view pattern) {
  return ::fnmatch(std::string(pattern).c_str(), std::string(name).c_str(), 0) == 0;
}

std::size_t display_width(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    const auto [size, code] = first_character(text);
    width += size == 0 ? 1 : width_of(code);
    text.remove_prefix(size == 0 ? 1 : size);
  }
  return width;
}

std::string cut_to_width(std::string_view text, std::size_t width) {
  if (display_width(text) <= width) {
    return std::string(text);
  }
  std::size_t used = 1;  // the ellipsis
  std::size_t at = 0;
  while (at < text.size()) {
    const auto [size, code] = first_character(text.substr(at));
    used += size == 0 ? 1 : width_of(code);
    if (used > width) {
      break;
    }
    at += size == 0 ? 1 : size;
  }
  return width == 0 ? std::string() : std::string(text.substr(0, at)) + "…";
}

std::string age_text(std::chrono::nanoseconds age) {
  using namespace std::chrono;
  const auto in = [age]<class Unit>(Unit /*one*/, const char* name) {
    return std::to_string(floor<Unit>(age).count()) + name;
  };
  return age < minutes(1) ? in(seconds(1), " s")
         : age < hours(1) ? in(minutes(1), " min")
         : age < days(1)  ? in(hours(1), " h")
                          : in(days(1), " d");
}

}  // namespace ecu::ctl
