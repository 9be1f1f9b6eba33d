#include <string>

#include "common/name_pattern.h"
#include "common/notes.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/decoding.h"
#include "quilctl/screen/variable_output.h"
#include "quilctl/talk/variable_session.h"

namespace ecu::ctl {

namespace {

/// Why the variable has no value.
Failure failure_of(const VariableRow& row, const VariableSession& session, bool has_waited) {
  const std::string without = row.name + " has no value";
  if (row.variable != nullptr && row.variable->is_faulty) {
    return {ExitCode::failure,
            not_decodable(tools::topic_of_variable(row.name)) + "; quilctl decode shows it"};
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

}  // namespace

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

}  // namespace ecu::ctl
