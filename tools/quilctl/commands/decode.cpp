#include <iostream>

#include "common/notes.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/decoded_text.h"
#include "quilctl/model/decoding.h"
#include "quilctl/model/times.h"
#include "quilctl/model/values.h"
#include "quilctl/talk/bus_connection.h"
#include "quilctl/talk/monitor_session.h"

namespace ecu::ctl {

namespace {

constexpr const char* all_topics = "#";

void print(const Options& options, const Event& event) {
  Json decoded = decode(event.text, event.message, options.reveal);
  if (options.json) {
    decoded["at"] = iso_time(event.at);
    print_json(decoded);
  } else {
    std::cout << local_time(event.at) << '\n';
    print_decoded(std::cout, decoded);
    std::cout << std::endl;
  }
}

void decode_messages(const Options& options, MonitorSession& session) {
  unsigned shown = 0;
  while (session.goes_on(shown)) {
    const auto event = session.next();
    if (!session.notice().empty()) {
      tools::note(session.notice());
    }
    if (event && event->kind == Event::Kind::message) {
      print(options, *event);
      ++shown;
    }
  }
  session.require_count(shown);
}

}  // namespace

ExitCode decode(const Options& options) {
  BusConnection bus(options.broker);
  bus.subscribe(options.filter.empty() ? all_topics : options.filter);
  bus.connect();
  MonitorSession session(options, bus);
  try {
    decode_messages(options, session);
  } catch (const Interrupted&) {
    // The usual end.
  }
  note_losses(session);
  return std::cout ? ExitCode::done : ExitCode::failure;
}

}  // namespace ecu::ctl
