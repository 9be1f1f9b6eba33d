#include <algorithm>
#include <iostream>
#include <string>

#include "common/escaping.h"
#include "common/name_pattern.h"
#include "common/notes.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/line_format.h"
#include "quilctl/talk/variable_session.h"

namespace ecu::ctl {

namespace {

bool has_value(const VariableRow& row) {
  return row.value().has_value();
}

/// Why the variable has no value.
Failure failure_of(const VariableRow& row, const VariableSession& session, bool has_waited) {
  const std::string without = row.name + " has no value";
  if (row.variable != nullptr && row.variable->is_faulty) {
    return {ExitCode::failure, "cannot decode the message on " + tools::topic_of_variable(row.name) +
                                   "; quilctl decode shows it"};
  }
  if (has_waited) {
    return {ExitCode::time_out, row.name + " got no value in the time of --wait"};
  }
  if (session.is_without_daemon()) {
    return {ExitCode::daemon_off_line, without + (session.view().daemon_on_line() == false
                                                      ? ", and the daemon is off line"
                                                      : ", and no daemon has announced that it is on line")};
  }
  return {ExitCode::no_value, without};
}

void print(const Options& options, const VariableRow& row, const UnitClock& clock) {
  const std::string& name = options.arguments.front();
  if (options.json) {
    print_json(json_of(row, clock));
  } else if (!options.format.empty()) {
    std::cout << formatted(options.format, row, clock, options.raw) << '\n';
  } else if (options.arguments.size() == 1 && !tools::is_pattern(name)) {
    print_value(options, *row.value());
  } else {
    std::cout << tools::printable(row.name) << "  " << shown_value(row.value()) << '\n';
  }
}

}  // namespace

ExitCode get(const Options& options) {
  const bool with_ages = options.json || !options.format.empty();
  VariableSession session(options, with_ages);
  require_known(session.view(), options.arguments);
  auto rows = variable_rows(session.view(), options.arguments);
  const bool must_wait = options.wait && !std::ranges::all_of(rows, has_value);
  if (must_wait) {
    session.session().set_time_limit(*options.wait);
    (void)session.session().wait_until([&] {
      rows = variable_rows(session.view(), options.arguments);
      return std::ranges::all_of(rows, has_value);
    });
  }
  if (with_ages) {
    session.determine_clock();
  }
  const Variable fallback{.value = options.fallback};
  ExitCode code = ExitCode::done;
  for (VariableRow& row : rows) {
    if (!has_value(row) && options.fallback) {
      row.variable = &fallback;
    }
    if (has_value(row)) {
      print(options, row, session.clock());
      continue;
    }
    session.note_if_nothing_is_published();
    const Failure failure = failure_of(row, session, must_wait);
    tools::note(failure.what());
    code = failure.code();
  }
  if (code == ExitCode::done && session.view().daemon_on_line() == false) {
    tools::note("the daemon is off line: it published this last");
  }
  return code;
}

}  // namespace ecu::ctl
