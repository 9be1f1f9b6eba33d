#include <unistd.h>

#include <iostream>
#include <optional>
#include <string>

#include "quilctl/base/files.h"
#include "quilctl/base/text.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/values.h"
#include "quilctl/model/variable_view.h"
#include "quilctl/talk/request_session.h"

namespace ecu::ctl {

namespace com = tamu::com;

namespace {

std::string get_topic(const std::string& which) {
  return "system/quil/secstore/get" + which;
}
std::string set_topic(const std::string& which) {
  return "system/quil/secstore/set" + which;
}

std::string value_from(const std::string& source) {
  std::string value;
  if (source == "-") {
    value = read_to_end(std::cin, "standard input");
  } else if (source.starts_with('@')) {
    value = read_file(source.substr(1));
  } else {
    // Whoever lists the machine's processes reads their command lines too.
    throw Failure(ExitCode::usage,
                  "a secret is not taken from the command line: @FILE, or - for standard input");
  }
  if (value.empty()) {
    // What a command that has failed, or a file that is still being made, leaves behind.
    throw Failure(ExitCode::usage,
                  (source == "-" ? "standard input" : source.substr(1)) + " is empty; nothing is stored");
  }
  return value;
}

/// The value as the bus has it, and whether that is news.
class SecretView {
 public:
  void take(const Event& event) {
    if (event.text == daemon_presence) {
      (void)presence_.take(event.text, event.message);
    } else {
      value_.emplace(event.message.payload.begin(), event.message.payload.end());
      is_fresh_ = !event.message.retained;
    }
  }
  [[nodiscard]] const std::optional<std::string>& value() const noexcept { return value_; }
  [[nodiscard]] bool confirmed(const std::string& value) const { return is_fresh_ && value_ == value; }
  [[nodiscard]] bool hears_of_daemon() const noexcept { return presence_.daemon_on_line().has_value(); }
  void require_daemon() const {
    if (presence_.daemon_on_line() == false) {
      throw Failure(ExitCode::daemon_off_line, "the daemon is off line");
    }
  }

 private:
  VariableView presence_;
  std::optional<std::string> value_;
  bool is_fresh_ = false;
};

}  // namespace

ExitCode secstore_get(const Options& options) {
  if (::isatty(STDOUT_FILENO) == 1 && !options.reveal) {
    throw Failure(ExitCode::usage, "standard output is a terminal: redirect it, or use --reveal");
  }
  SecretView view;
  const Conversation talk(options, {get_topic(options.which), daemon_presence},
                          [&view](const Event& event) { view.take(event); });
  if (!view.value()) {
    view.require_daemon();
    throw Failure(ExitCode::no_value,
                  "the " + options.which +
                      " value has not come or is empty, or the broker's access rules keep us from it");
  }
  const std::string& value = *view.value();
  if (options.json) {
    print_json({{"name", options.which}, {"bytes", value.size()}, {"hex", to_hex(value)}});
  } else if (::isatty(STDOUT_FILENO) == 1) {
    print_value(options, value);
  } else {
    std::cout << value;
  }
  return ExitCode::done;
}

ExitCode secstore_set(const Options& options) {
  const std::string value = value_from(options.file);
  SecretView view;
  Conversation talk(options, {get_topic(options.which), daemon_presence},
                    [&view](const Event& event) { view.take(event); });
  view.require_daemon();
  com::Message message = com::make_message(0, {value.begin(), value.end()});
  message.acknowledged = true;
  (void)talk.bus().publish(set_topic(options.which), std::move(message));
  const bool confirmed = talk.wait_until([&] {
    view.require_daemon();
    return view.confirmed(value);
  });
  if (!confirmed) {
    throw Failure(
        view.hears_of_daemon() ? ExitCode::time_out : ExitCode::daemon_off_line,
        "not confirmed within " + talk.time_limit() +
            ": the daemon is not there or could not write to its port, or the broker's access rules keep "
            "us from it");
  }
  if (options.json) {
    print_json({{"name", options.which}, {"bytes", value.size()}, {"confirmed", true}});
  }
  return ExitCode::done;
}

}  // namespace ecu::ctl
