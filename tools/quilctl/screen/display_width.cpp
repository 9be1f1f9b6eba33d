#include "quilctl/screen/display_width.h"

#include <ecu/tamu/text/utf8.h>

namespace ecu::ctl {

using tamu::text::first_character;

namespace {

// Two columns for the wide characters of East Asian scripts and emoji, none for combining ones.
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

}  // namespace ecu::ctl
