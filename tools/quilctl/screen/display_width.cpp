#include "quilctl/screen/display_width.h"

#include <langinfo.h>
#include <wchar.h>

#include <algorithm>
#include <clocale>

#include <ecu/tamu/text/utf8.h>

namespace ecu::ctl {

namespace {

bool is_ascii_only = false;

struct Shown {
  std::size_t bytes, columns;
};

Shown first_of(std::string_view text) {
  const auto [size, code] = tamu::text::first_character(text);
  return {std::max<std::size_t>(size, 1),
          size == 0 ? 1 : static_cast<std::size_t>(std::max(::wcwidth(static_cast<wchar_t>(code)), 0))};
}

}  // namespace

void use_terminal_encoding() {
  (void)std::setlocale(LC_CTYPE, "");
  is_ascii_only = std::string_view(::nl_langinfo(CODESET)) != "UTF-8";
  if (is_ascii_only) {
    (void)std::setlocale(LC_CTYPE, "C.UTF-8");  // knows the widths of the values' characters
  }
}

std::size_t display_width(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    const Shown first = first_of(text);
    width += first.columns;
    text.remove_prefix(first.bytes);
  }
  return width;
}

std::string cut_to_width(std::string_view text, std::size_t width) {
  if (display_width(text) <= width) {
    return std::string(text);
  }
  std::size_t used = 1;  // the ellipsis
  std::size_t at = 0;
  for (Shown next{}; at < text.size(); at += next.bytes) {
    next = first_of(text.substr(at));
    used += next.columns;
    if (used > width) {
      break;
    }
  }
  return width == 0 ? std::string() : std::string(text.substr(0, at)) + (is_ascii_only ? "~" : "…");
}

std::string for_terminal(std::string text) {
  if (!is_ascii_only) {
    return text;
  }
  std::string result;
  for (std::string_view rest = text; !rest.empty();) {
    const Shown first = first_of(rest);
    result += first.bytes == 1 ? std::string(rest.substr(0, 1)) : std::string(first.columns, '?');
    rest.remove_prefix(first.bytes);
  }
  return result;
}

}  // namespace ecu::ctl
