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
      tools::note(not_decodable(tools::topic_of_variable(row.name)));
    }
  }
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

}  // namespace ecu::ctl
