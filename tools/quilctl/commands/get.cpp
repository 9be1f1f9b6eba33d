#include <string>

#include <ecu/tamu/com/topics.h>

#include "quilctl/commands/commands.h"
#include "quilctl/commands/variable_notes.h"
#include "quilctl/model/values.h"
#include "quilctl/model/variable_catalogue.h"
#include "quilctl/talk/request_session.h"

namespace ecu::ctl {

namespace topics = tamu::com::topics;

namespace {

/// One variable among all. The others show whether there has been a daemon at all.
class SingleVariable {
 public:
  explicit SingleVariable(std::string name) : name_(std::move(name)) {}

  void handle(const Event& event) {
    const auto change = view_.take(event.text, event.message);
    is_faulty_ = variable_of(event.text) == name_ ? change == VariableView::Change::faulty : is_faulty_;
  }

  /// The variable, when it has a value; else null.
  [[nodiscard]] const Variable* found() const {
    const Variable* const variable = view_.find(name_);
    return variable != nullptr && variable->value ? variable : nullptr;
  }
  /// Whether its last message cannot be decoded.
  [[nodiscard]] bool is_faulty() const noexcept { return is_faulty_; }
  [[nodiscard]] bool exists() const {
    return find_variable(name_) != nullptr || view_.find(name_) != nullptr || is_faulty_;
  }
  [[nodiscard]] std::optional<bool> daemon_on_line() const { return view_.daemon_on_line(); }

  /// Throws the failure for the missing value.
  [[noreturn]] void fail() const {
    if (is_faulty_) {
      throw Failure(ExitCode::failure, std::string("cannot decode the message on ") +
                                           topics::variable_prefix + name_ + "; quilctl decode shows it");
    }
    if (!exists()) {
      throw Failure(ExitCode::unknown, "no variable is named " + name_ + "; quilctl describe lists them");
    }
    note_if_nothing_is_published(view_);
    if (daemon_on_line() == false) {
      throw Failure(ExitCode::daemon_off_line, name_ + " has no value, and the daemon is off line");
    }
    if (!daemon_on_line() && view_.all().empty()) {
      throw Failure(ExitCode::daemon_off_line,
                    name_ + " has no value, and no daemon has announced that it is on line");
    }
    throw Failure(ExitCode::no_value, name_ + " has no value");
  }

 private:
  const std::string name_;
  VariableView view_;
  bool is_faulty_ = false;
};

void print(const Options& options, const std::string& name, const Variable& variable) {
  if (options.json) {
    print_json({{"name", name}, {"value", json_value(variable.value)}, {"timestamp_ns", variable.timestamp}});
  } else {
    print_value(options, *variable.value);
  }
}

}  // namespace

ExitCode get(const Options& options) {
  const std::string& name = options.arguments.front();
  if (name.empty() || name.find_first_of("+#") != std::string::npos) {
    throw Failure(ExitCode::unknown, "no variable is named '" + name + "'");
  }
  SingleVariable variable(name);
  RequestSession session(options, {topics::all_variables_filter, topics::daemon_presence},
                         [&variable](const Event& event) { variable.handle(event); });
  if (variable.found() == nullptr && options.wait && variable.exists()) {
    session.set_time_limit(*options.wait);
    if (!session.wait_until([&variable] { return variable.found() != nullptr; }) && !variable.is_faulty()) {
      throw Failure(ExitCode::time_out, name + " got no value within " + session.time_limit());
    }
  }
  if (variable.found() == nullptr) {
    variable.fail();
  }
  if (variable.daemon_on_line() == false) {
    note("the daemon is off line: this is the value it published last");
  }
  print(options, name, *variable.found());
  return ExitCode::done;
}

}  // namespace ecu::ctl
