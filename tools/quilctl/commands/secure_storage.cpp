#include <unistd.h>

#include <iostream>
#include <optional>
#include <string>

#include <ecu/tamu/com/system_parameters.h>
#include <ecu/tamu/com/topics.h>

#include "common/hexadecimal.h"
#include "common/input_file.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/values.h"
#include "quilctl/model/variable_view.h"
#include "quilctl/talk/request_session.h"

namespace ecu::ctl {

namespace com = tamu::com;
namespace topics = com::topics;

namespace {

bool is_master(const Options& options) {
  return options.secret == "master";
}

/// A value of the secure storage as published on the bus, and the presence of the daemon.
class SecretSession {
 public:
  explicit SecretSession(const Options& options)
      : session_(options,
                 {is_master(options) ? topics::get_master : topics::get_remote, topics::daemon_presence},
                 [this](const Event& event) { handle(event); }) {}

  [[nodiscard]] const std::optional<std::string>& value() const noexcept { return value_; }

  /// Throws `Failure` when the daemon is known to be off line.
  void require_daemon() const {
    if (daemon_on_line_ == false) {
      throw Failure(ExitCode::daemon_off_line, "the daemon is off line");
    }
  }

  /// Publishes the value on `topic`, and returns once the daemon has confirmed it; throws `Failure` when it
  /// does not.
  void store(const std::string& topic, const std::string& value) {
    (void)session_.bus().publish(topic, {.acknowledged = true, .payload = {value.begin(), value.end()}});
    const bool is_confirmed = session_.wait_until([&] {
      require_daemon();
      return is_live_ && value_ == value;
    });
    if (!is_confirmed) {
      throw Failure(daemon_on_line_ ? ExitCode::time_out : ExitCode::daemon_off_line,
                    "not confirmed within " + session_.time_limit() +
                        ": the daemon is not running or could not write to its port, or the broker's access "
                        "rules deny access");
    }
  }

 private:
  void handle(const Event& event) {
    if (event.text == topics::daemon_presence) {
      daemon_on_line_ = says_on_line(event.message);
    } else {
      value_.emplace(event.message.payload.begin(), event.message.payload.end());
      is_live_ = !event.message.retained;
    }
  }

  std::optional<bool> daemon_on_line_;  // none: no presence received
  std::optional<std::string> value_;
  bool is_live_ = false;    // the daemon has published the value since the connection
  RequestSession session_;  // last: its construction calls `handle`
};

std::string value_from(const std::string& source) {
  constexpr const char* standard_input = "standard input";
  const bool is_file = source.starts_with('@');
  if (!is_file && source != "-") {
    // Command lines are visible in the list of processes.
    throw Failure(ExitCode::usage,
                  "do not give a secret on the command line: use @FILE, or - for standard input");
  }
  std::string value = is_file ? tools::read_file(source.substr(1), com::max_parameter_value_size)
                              : tools::read_stream(std::cin, standard_input, com::max_parameter_value_size);
  if (value.empty()) {
    // The output of a failed command, or a file that is still being written.
    throw Failure(ExitCode::usage,
                  (is_file ? source.substr(1) : standard_input) + " is empty; nothing is stored");
  }
  return value;
}

}  // namespace

ExitCode secstore_get(const Options& options) {
  const bool is_terminal = ::isatty(STDOUT_FILENO) == 1;
  if (is_terminal && !options.reveal) {
    throw Failure(ExitCode::usage, "standard output is a terminal: redirect it, or use --reveal");
  }
  const SecretSession session(options);
  if (!session.value()) {
    session.require_daemon();
    throw Failure(ExitCode::no_value,
                  "the " + options.secret +
                      " value has not been published or is empty, or the broker's access rules deny access");
  }
  const std::string& value = *session.value();
  if (options.json) {
    print_json({{"name", options.secret}, {"bytes", value.size()}, {"hex", tools::to_hex(value)}});
  } else if (is_terminal) {
    print_value(options, value);
  } else {
    std::cout << value;
  }
  return ExitCode::done;
}

ExitCode secstore_set(const Options& options) {
  const std::string value = value_from(options.file);
  SecretSession session(options);
  session.require_daemon();
  session.store(is_master(options) ? topics::set_master : topics::set_remote, value);
  if (options.json) {
    print_json({{"name", options.secret}, {"bytes", value.size()}, {"confirmed", true}});
  }
  return ExitCode::done;
}

}  // namespace ecu::ctl
