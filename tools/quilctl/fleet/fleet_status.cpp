#include <iostream>
#include <string>
#include <vector>

#include "common/escaping.h"
#include "common/times.h"
#include "quilctl/fleet/fleet_commands.h"
#include "quilctl/fleet/fleet_source.h"
#include "quilctl/screen/text_table.h"
#include "quilctl/talk/request_session.h"

namespace ecu::ctl::fleet {

namespace {

const char* shown(const std::optional<bool>& daemon_on_line) {
  return !daemon_on_line ? "-" : *daemon_on_line ? "online" : "offline";
}

void print_table(const std::vector<const FleetView::Unit*>& units) {
  TextTable table({"UNIT", "PRESENCE", "CONNECTED SINCE", "DAEMON"}, 2);
  for (const FleetView::Unit* const unit : units) {
    table.add({tools::printable(unit->unit.name), unit->presence.empty() ? "-" : unit->presence,
               unit->connected_since ? tools::local_time(*unit->connected_since) : "-",
               shown(unit->variables.daemon_on_line())});
  }
  table.print(std::cout, OutputStyle::of_standard_output());
}

Json json_of(const FleetView::Unit& unit) {
  const auto& since = unit.connected_since;
  const auto& daemon = unit.variables.daemon_on_line();
  return {{"unit", json_value(unit.unit.name)},
          {"presence", unit.presence.empty() ? Json() : Json(unit.presence)},
          {"connected_since", since ? Json(tools::iso_time(*since)) : Json()},
          {"daemon", daemon ? Json(shown(daemon)) : Json()}};
}

}  // namespace

ExitCode status(const Options& options) {
  FleetSource source(options);
  const RequestSession session(options, source.state_filters(), handler_of(source));
  source.require_units();
  const auto units = source.units();
  if (options.json) {
    for (const FleetView::Unit* const unit : units) {
      print_json(json_of(*unit));
    }
  } else {
    print_table(units);
    std::cout << source.summary().text << '\n';
  }
  return source.is_any_online() ? ExitCode::done : ExitCode::daemon_off_line;
}

}  // namespace ecu::ctl::fleet
