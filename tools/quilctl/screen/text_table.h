#pragma once

#include <cstddef>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

namespace ecu::ctl {

/// How to format output for its reader: a person at a terminal, or a program.
struct OutputStyle {
  bool is_terminal = false;
  bool colour = false;
  std::size_t width = std::numeric_limits<std::size_t>::max();  // longer lines are cut

  /// The style for standard output. Colour and width on a terminal only; no colour when NO_COLOR is set and
  /// not empty, or when TERM is "dumb".
  [[nodiscard]] static OutputStyle of_standard_output();
};

/// Rows of text in columns as wide as their contents.
class TextTable {
 public:
  /// When space is short the columns after the `essential` ones are left out, the last one first.
  explicit TextTable(std::vector<std::string> headings,
                     std::size_t essential = std::numeric_limits<std::size_t>::max())
      : essential_(essential), rows_{std::move(headings)} {}

  /// `row` has a text for each heading.
  void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }

  /// A line for the headings and one for each row, none wider than `width`. The last columns are truncated
  /// first. If `width` is the largest number, nothing is truncated, and a cell wider than 128 columns moves
  /// the following ones of its line to the right.
  [[nodiscard]] std::vector<std::string> lines(std::size_t width) const;

  void print(std::ostream& out, const OutputStyle& style) const;

 private:
  /// Whether every essential column gets its share of a line, and every other one a useful width.
  [[nodiscard]] bool have_room(const std::vector<std::size_t>& widths, std::size_t width) const;
  [[nodiscard]] std::vector<std::size_t> column_widths(std::size_t width) const;

  const std::size_t essential_;
  std::vector<std::vector<std::string>> rows_;  // the first holds the headings
};

}  // namespace ecu::ctl
