#include <unistd.h>

#include <iostream>

#include "common/hexadecimal.h"
#include "quilctl/commands/commands.h"
#include "quilctl/commands/secret_view.h"
#include "quilctl/model/values.h"
#include "quilctl/talk/request_session.h"

namespace ecu::ctl {

namespace topics = tamu::com::topics;

ExitCode secstore_get(const Options& options) {
  const bool is_terminal = ::isatty(STDOUT_FILENO) == 1;
  if (is_terminal && !options.reveal) {
    throw Failure(ExitCode::usage, "standard output is a terminal: redirect it, or use --reveal");
  }
  SecretView view;
  const char* const topic = options.secret == "master" ? topics::get_master : topics::get_remote;
  const RequestSession session(options, {topic, topics::daemon_presence},
                               [&view](const Event& event) { view.handle(event); });
  if (!view.value()) {
    view.require_daemon();
    throw Failure(ExitCode::no_value,
                  "the " + options.secret +
                      " value has not been published or is empty, or the broker's access rules deny access");
  }
  const std::string& value = *view.value();
  if (options.json) {
    print_json({{"name", options.secret}, {"bytes", value.size()}, {"hex", tools::to_hex(value)}});
  } else if (is_terminal) {
    print_value(options, value);
  } else {
    std::cout << value;
  }
  return ExitCode::done;
}

}  // namespace ecu::ctl
