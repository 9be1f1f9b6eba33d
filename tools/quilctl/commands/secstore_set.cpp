#include <iostream>
#include <utility>

#include "quilctl/base/value_input.h"
#include "quilctl/commands/commands.h"
#include "quilctl/commands/secret_view.h"
#include "quilctl/model/values.h"
#include "quilctl/talk/request_session.h"

namespace ecu::ctl {

namespace com = tamu::com;
namespace topics = com::topics;

namespace {

std::string value_from(const std::string& source) {
  constexpr const char* standard_input = "standard input";
  const bool is_file = source.starts_with('@');
  if (!is_file && source != "-") {
    // Command lines are visible in the list of processes.
    throw Failure(ExitCode::usage,
                  "do not give a secret on the command line: use @FILE, or - for standard input");
  }
  std::string value =
      is_file ? read_value_file(source.substr(1)) : read_value_stream(std::cin, standard_input);
  if (value.empty()) {
    // The output of a failed command, or a file that is still being written.
    throw Failure(ExitCode::usage,
                  (is_file ? source.substr(1) : standard_input) + " is empty; nothing is stored");
  }
  return value;
}

void publish(RequestSession& session, const std::string& topic, const std::string& value) {
  com::Message message = com::make_message(0, {value.begin(), value.end()});
  message.acknowledged = true;
  (void)session.bus().publish(topic, std::move(message));
}

}  // namespace

ExitCode secstore_set(const Options& options) {
  const std::string value = value_from(options.file);
  const bool is_master = options.secret == "master";
  SecretView view;
  RequestSession session(options,
                         {is_master ? topics::get_master : topics::get_remote, topics::daemon_presence},
                         [&view](const Event& event) { view.handle(event); });
  view.require_daemon();
  publish(session, is_master ? topics::set_master : topics::set_remote, value);
  const bool confirmed = session.wait_until([&] {
    view.require_daemon();
    return view.confirmed(value);
  });
  if (!confirmed) {
    throw Failure(view.has_presence() ? ExitCode::time_out : ExitCode::daemon_off_line,
                  "not confirmed within " + session.time_limit() +
                      ": the daemon is not running or could not write to its port, or the broker's access "
                      "rules deny access");
  }
  if (options.json) {
    print_json({{"name", options.secret}, {"bytes", value.size()}, {"confirmed", true}});
  }
  return ExitCode::done;
}

}  // namespace ecu::ctl
