#include "quilctl/screen/text_table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <numeric>
#include <string_view>

#include "quilctl/screen/display_width.h"

namespace ecu::ctl {

namespace {

constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();
constexpr std::size_t gap = 2;            // between columns
constexpr std::size_t least_width = 6;    // of a truncated column
constexpr std::size_t useful_width = 12;  // of a column that can be left out
// A cell is padded to at most this width in lines of unlimited length. Otherwise one large value would make
// every line as large.
constexpr std::size_t widest_padded = 128;
constexpr const char* bold = "\x1b[1m";
constexpr const char* plain = "\x1b[0m";

std::string_view variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? std::string_view() : value;
}

}  // namespace

OutputStyle OutputStyle::of_standard_output() {
  if (::isatty(STDOUT_FILENO) == 0) {
    return {};
  }
  OutputStyle style{.is_terminal = true};
  style.colour = variable("NO_COLOR").empty() && variable("TERM") != "dumb";
  if (winsize size{}; ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    style.width = size.ws_col;
  }
  return style;
}

bool TextTable::have_room(const std::vector<std::size_t>& widths, std::size_t width) const {
  std::size_t needed = widths.front();
  for (std::size_t i = 1; i < widths.size(); ++i) {
    needed += gap + std::min(widths[i], i < essential_ ? width / essential_ : useful_width);
  }
  return needed <= width;
}

std::vector<std::size_t> TextTable::column_widths(std::size_t width) const {
  std::vector<std::size_t> widths(rows_.front().size());
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < widths.size(); ++i) {
      widths[i] = std::max(widths[i], display_width(row[i]));
    }
  }
  while (widths.size() > essential_ && !have_room(widths, width)) {
    widths.pop_back();
  }
  const std::size_t total = std::accumulate(widths.begin(), widths.end(), gap * (widths.size() - 1));
  std::size_t surplus = total > width ? total - width : 0;
  for (std::size_t i = widths.size(); i-- > 0;) {
    const std::size_t least = i < essential_ ? least_width : useful_width;
    const std::size_t cut = std::min(surplus, widths[i] - std::min(widths[i], least));
    widths[i] -= cut;
    surplus -= cut;
  }
  return widths;
}

std::vector<std::string> TextTable::lines(std::size_t width) const {
  const std::vector<std::size_t> widths = column_widths(width);
  const std::size_t most_padded = width == unlimited ? widest_padded : width;
  std::vector<std::string> result;
  for (const auto& row : rows_) {
    std::string line;
    for (std::size_t i = 0; i < widths.size(); ++i) {
      const std::string cell = cut_to_width(row[i], widths[i]);
      line += cell;
      if (i + 1 < widths.size()) {
        const std::size_t padded = std::min(widths[i], most_padded);
        line.append(padded - std::min(padded, display_width(cell)) + gap, ' ');
      }
    }
    result.push_back(cut_to_width(line, width));
  }
  return result;
}

void TextTable::print(std::ostream& out, const OutputStyle& style) const {
  bool is_heading = style.colour;
  for (const std::string& line : lines(style.width)) {
    out << (is_heading ? bold : "") << (style.is_terminal ? for_terminal(line) : line)
        << (is_heading ? plain : "") << '\n';
    is_heading = false;
  }
}

}  // namespace ecu::ctl
