#include "quilctl/screen/variable_output.h"

#include <iostream>
#include <utility>

#include "common/escaping.h"
#include "common/notes.h"
#include "common/times.h"
#include "quilctl/model/line_format.h"

namespace ecu::ctl {

namespace {

// As JSON, in the format of the user, or as an assignment.
void print_row(const Options& options, const VariableRow& row, const UnitClock& clock) {
  if (options.json) {
    print_json(json_of(row, clock));
  } else if (!options.shell) {
    std::cout << formatted(options.format, row, clock, options.raw) << '\n';
  } else if (row.info != nullptr) {  // nobody on the bus can set PATH
    std::cout << shell_assignment(row) << '\n';
  }
}

}  // namespace

TextTable table_of(const std::vector<VariableRow>& rows, const UnitClock& clock, bool of_fleet) {
  std::vector<std::string> headings = {"NAME", "VALUE", "AGE", "SOURCE"};
  std::size_t essential = 2;
  if (of_fleet) {
    headings.insert(headings.begin(), "UNIT");
    ++essential;
  }
  TextTable table(std::move(headings), essential);
  for (const VariableRow& row : rows) {
    const auto age = row.age(clock);
    std::vector<std::string> columns = {tools::printable(row.name), shown_value(row.value()),
                                        age ? tools::age_text(*age) : "-",
                                        row.info == nullptr ? "-" : row.info->sources_text()};
    if (of_fleet) {
      columns.insert(columns.begin(), tools::printable(row.unit_name()));
    }
    table.add(std::move(columns));
  }
  return table;
}

void print_rows(const Options& options, const std::vector<VariableRow>& rows, const UnitClock& clock) {
  if (!options.json && !options.shell && options.format.empty()) {
    table_of(rows, clock, options.fleet.has_value()).print(std::cout, OutputStyle::of_standard_output());
    return;
  }
  for (const VariableRow& row : rows) {
    print_row(options, row, clock);
  }
}

ExitCode print_values(const Options& options, const std::vector<VariableRow>& rows, const UnitClock& clock,
                      bool is_single, const std::function<Failure(const VariableRow&)>& failure_of) {
  const Variable fallback{.value = options.fallback};
  ExitCode code = ExitCode::done;
  for (VariableRow row : rows) {
    if (!row.value() && options.fallback) {
      row.variable = &fallback;
    }
    if (!row.value()) {
      const Failure failure = failure_of(row);
      tools::note(failure.what());
      code = failure.code();
    } else if (options.json || !options.format.empty()) {
      print_row(options, row, clock);
    } else if (is_single) {
      print_value(options, *row.value());
    } else {
      std::cout << line_of(row) << '\n';
    }
  }
  return code;
}

}  // namespace ecu::ctl
