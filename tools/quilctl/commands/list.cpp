#include <iostream>

#include "common/notes.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/line_format.h"
#include "quilctl/screen/text_table.h"
#include "quilctl/talk/variable_session.h"

namespace ecu::ctl {

namespace {

void print_table(const std::vector<VariableRow>& rows, const UnitClock& clock) {
  TextTable table(variable_headings(), essential_variable_columns);
  for (const VariableRow& row : rows) {
    table.add(columns_of(row, clock));
  }
  table.print(std::cout, OutputStyle::of_standard_output());
}

void print(const Options& options, const std::vector<VariableRow>& rows, const UnitClock& clock) {
  if (!options.json && !options.shell && options.format.empty()) {
    print_table(rows, clock);
    return;
  }
  for (const VariableRow& row : rows) {
    if (options.json) {
      print_json(json_of(row, clock));
    } else if (!options.shell) {
      std::cout << formatted(options.format, row, clock, options.raw) << '\n';
    } else if (row.info != nullptr) {  // nobody on the bus can set PATH
      std::cout << shell_assignment(row) << '\n';
    }
  }
}

void note_faults(const std::vector<VariableRow>& rows) {
  for (const VariableRow& row : rows) {
    if (row.variable != nullptr && row.variable->is_faulty) {
      tools::note("cannot decode the message on " + tools::topic_of_variable(row.name));
    }
  }
}

}  // namespace

ExitCode list(const Options& options) {
  if (!options.expect_file.empty()) {
    return list_expected(options);
  }
  VariableSession session(options);
  require_known(session.view(), options.arguments);
  session.determine_clock();
  const auto rows = variable_rows(session.view(), options.arguments);
  print(options, rows, session.clock());
  note_faults(rows);
  session.note_if_nothing_is_published();
  if (!session.is_without_daemon()) {
    return ExitCode::done;
  }
  throw Failure(ExitCode::daemon_off_line, session.view().daemon_on_line()
                                               ? "the daemon is off line: it published these values last"
                                               : "no daemon has announced that it is on line");
}

}  // namespace ecu::ctl
