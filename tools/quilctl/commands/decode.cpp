#include <iostream>

#include "common/times.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/decoding.h"
#include "quilctl/model/values.h"
#include "quilctl/talk/monitor_session.h"

namespace ecu::ctl {

namespace {

// Whether the event is a message.
bool print(const Options& options, const Event& event) {
  if (event.kind != Event::Kind::message) {
    return false;
  }
  Json decoded = decode(event.text, event.message, options.reveal);
  if (options.json) {
    decoded["at"] = tools::iso_time(event.at);
    print_json(decoded);
  } else {
    std::cout << tools::local_time(event.at) << '\n';
    print_decoded(std::cout, decoded);
    std::cout << std::endl;
  }
  return true;
}

}  // namespace

ExitCode decode(const Options& options) {
  MonitorSession session(options, {options.filter.empty() ? "#" : options.filter});
  session.run([&options](const Event& event) { return print(options, event); });
  return ExitCode::done;
}

}  // namespace ecu::ctl
