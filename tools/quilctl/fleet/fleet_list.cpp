#include "common/name_pattern.h"
#include "quilctl/fleet/fleet_commands.h"
#include "quilctl/fleet/fleet_source.h"
#include "quilctl/screen/variable_output.h"
#include "quilctl/talk/request_session.h"

namespace ecu::ctl::fleet {

ExitCode list(const Options& options) {
  FleetSource source(options);
  RequestSession session(options, source.filters(false), handler_of(source));
  source.require_known();
  print_rows(options, source.rows(), source.clock());
  if (!source.is_any_online()) {
    throw Failure(ExitCode::daemon_off_line, "no unit is online: these values were published last");
  }
  return ExitCode::done;
}

ExitCode get(const Options& options) {
  FleetSource source(options);
  RequestSession session(options, source.filters(false), handler_of(source));
  session.await_values(options, [&source] { return source.rows(true); });
  source.require_units(options.wait ? ExitCode::time_out : ExitCode::unknown);
  source.require_known();
  const bool is_single =
      source.is_one_unit() && options.arguments.size() == 1 && !tools::is_pattern(options.arguments.front());
  return print_values(
      options, source.rows(true), source.clock(), is_single, [&options](const VariableRow& row) {
        return options.wait
                   ? Failure(ExitCode::time_out,
                             row.unit_name() + ": " + row.name + " got no value in the time of --wait")
                   : Failure(ExitCode::no_value, row.unit_name() + ": " + row.name + " has no value");
      });
}

}  // namespace ecu::ctl::fleet
