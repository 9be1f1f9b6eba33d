#include <iostream>
#include <string>

#include "common/name_pattern.h"
#include "common/notes.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/decoding.h"
#include "quilctl/screen/variable_output.h"
#include "quilctl/talk/variable_session.h"

namespace ecu::ctl {

namespace {

void note_faults(const std::vector<VariableRow>& rows) {
  for (const VariableRow& row : rows) {
    if (row.variable != nullptr && row.variable->is_faulty) {
      tools::note(not_decodable(row.topic()));
    }
  }
}

// Why the variable has no value.
Failure failure_of(const VariableRow& row, const VariableSession& session, bool has_waited) {
  const std::string without = row.name + " has no value";
  if (row.variable != nullptr && row.variable->is_faulty) {
    return {ExitCode::failure, not_decodable(row.topic()) + "; quilctl decode shows it"};
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

void print_description(const tools::VariableInfo& info) {
  std::cout << info.name << "\n  " << info.meaning << "\n  topic      " << info.topic() << "\n  form       "
            << info.form.description << "\n  source     " << info.sources_text()
            << (info.signal.empty() ? "" : ", signal ") << info.signal << "\n  published  "
            << info.published_when << "\n  example    " << info.example << '\n';
}

}  // namespace

ExitCode list(const Options& options) {
  if (!options.expect_file.empty()) {
    return list_expected(options);
  }
  VariableSession session(options);
  session.source().require_known();
  session.determine_clock();
  const auto rows = session.source().rows();
  print_rows(options, rows, session.clock());
  note_faults(rows);
  session.note_if_nothing_is_published();
  if (!session.is_without_daemon()) {
    return ExitCode::done;
  }
  throw Failure(ExitCode::daemon_off_line, session.view().daemon_on_line()
                                               ? "the daemon is off line: it published these values last"
                                               : "no daemon has announced that it is on line");
}

ExitCode get(const Options& options) {
  const bool with_ages = options.json || !options.format.empty();
  VariableSession session(options, with_ages);
  session.source().require_known();
  session.session().await_values(options, [&] { return session.source().rows(); });
  if (with_ages) {
    session.determine_clock();
  }
  const bool is_single = options.arguments.size() == 1 && !tools::is_pattern(options.arguments.front());
  const auto failure = [&](const VariableRow& row) {
    session.note_if_nothing_is_published();
    return failure_of(row, session, options.wait.has_value());
  };
  const ExitCode code = print_values(options, session.source().rows(), session.clock(), is_single, failure);
  if (code == ExitCode::done && session.view().daemon_on_line() == false) {
    tools::note("the daemon is off line: it published this last");
  }
  return code;
}

ExitCode describe(const Options& options) {
  require_known(variable_rows({}), options.arguments);
  for (const VariableRow& row : variable_rows({}, options.arguments)) {
    if (options.json) {
      print_json(json_of(*row.info));
    } else {
      print_description(*row.info);
    }
  }
  return ExitCode::done;
}

}  // namespace ecu::ctl
