#include <iostream>

#include "quilctl/commands/commands.h"
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

}  // namespace

ExitCode decode(const Options& options) {
  BusConnection bus(options.broker);
  bus.subscribe(options.filter.empty() ? all_topics : options.filter);
  bus.connect();
  MonitorSession session(options, bus);
  try {
    session.run([&options](const Event& event) {
      const bool is_message = event.kind == Event::Kind::message;
      if (is_message) {
        print(options, event);
      }
      return is_message;
    });
  } catch (const Interrupted&) {
    // The normal way to stop: Ctrl-C.
  }
  note_losses(session);
  return std::cout ? ExitCode::done : ExitCode::failure;
}

}  // namespace ecu::ctl
