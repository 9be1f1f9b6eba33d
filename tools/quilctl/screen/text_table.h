#pragma once

#include <cstddef>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

namespace ecu::ctl {

/// How to write for whoever reads: a person at a terminal, or a program.
struct OutputStyle {
  bool colour = false;
  std::size_t width = std::numeric_limits<std::size_t>::max();  // longer lines are cut

  /// That of standard output: colour and a width on a terminal only; no colour where NO_COLOR is set and not
  /// empty, or the terminal is a dumb one.
  [[nodiscard]] static OutputStyle of_standard_output();
};

/// Rows of text in columns that are as wide as they need.
class Table {
 public:
  /// Where room is scarce the columns behind the `essential` ones are left out, the last first.
  explicit Table(std::vector<std::string> headings,
                 std::size_t essential = std::numeric_limits<std::size_t>::max())
      : essential_(essential), rows_{std::move(headings)} {}

  /// `row` has a text for each heading.
  void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }

  /// A line for the headings and one for each row, none wider than `width`: the last columns are cut first.
  [[nodiscard]] std::vector<std::string> lines(std::size_t width) const;

  void print(std::ostream& out, const OutputStyle& style) const;

 private:
  /// Whether the essential columns have their shares of a line, and the others what makes them useful.
  [[nodiscard]] bool have_room(const std::vector<std::size_t>& widths, std::size_t width) const;
  [[nodiscard]] std::vector<std::size_t> column_widths(std::size_t width) const;

  const std::size_t essential_;
  std::vector<std::vector<std::string>> rows_;  // the first has the headings
};

}  // namespace ecu::ctl
