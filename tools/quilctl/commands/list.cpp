#include <chrono>
#include <iostream>
#include <string>

#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/com/system_parameters.h>
#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/pb/messages.pb.h>

#include "quilctl/commands/commands.h"
#include "quilctl/commands/variable_notes.h"
#include "quilctl/model/variable_rows.h"
#include "quilctl/screen/text_table.h"
#include "quilctl/talk/request_session.h"

namespace ecu::ctl {

namespace com = tamu::com;
namespace topics = com::topics;

namespace {

// Without a reply of the daemon in this time the list shows no ages.
constexpr std::chrono::milliseconds clock_timeout{500};

// Any live message has the unit's time; the send time of a retained message is in the past. Each unit has the
// parameter that is requested here.
void determine_clock(RequestSession& session, const VariableView& view, UnitClock& clock) {
  if (session.bus().is_local()) {
    clock.use_local_clock();
    return;
  }
  if (view.daemon_on_line() == false) {
    return;
  }
  tamu::pb::EcuVariableReq request;
  request.add_name(std::to_string(com::top_version_id));
  if (auto message = com::PbInternalMessageAdapter<tamu::pb::EcuVariableReq>().serialize(request)) {
    (void)session.bus().publish(topics::parameter_request, std::move(*message));
  }
  (void)session.wait_until([&clock] { return clock.known(); }, RequestSession::Clock::now() + clock_timeout);
}

void print_table(const VariableView& view, const UnitClock& clock) {
  TextTable table(variable_headings());
  for (const VariableRow& row : variable_rows(view)) {
    table.add(columns_of(row, clock));
  }
  table.print(std::cout, OutputStyle::of_standard_output());
}

void print(const Options& options, const VariableView& view, const UnitClock& clock) {
  if (!options.json) {
    print_table(view, clock);
    return;
  }
  for (const VariableRow& row : variable_rows(view)) {
    print_json(json_of(row, clock));
  }
}

}  // namespace

ExitCode list(const Options& options) {
  VariableView view;
  UnitClock clock;
  RequestSession session(options,
                         {topics::all_variables_filter, topics::daemon_presence, topics::parameter_answer},
                         [&](const Event& event) {
                           if (view.take(event.text, event.message) == VariableView::Change::faulty) {
                             note("cannot decode the message on " + event.text);
                           } else if (event.text != topics::daemon_presence) {
                             clock.take(event.message);
                           }
                         });
  determine_clock(session, view, clock);
  print(options, view, clock);
  note_if_nothing_is_published(view);
  if (view.daemon_on_line() == false) {
    note("the daemon is off line: these are the values it published last");
  }
  return ExitCode::done;
}

}  // namespace ecu::ctl
