#include <unistd.h>

#include <iostream>
#include <optional>
#include <string>

#include <ecu/tamu/com/topics.h>

#include "common/escaping.h"
#include "common/name_pattern.h"
#include "common/notes.h"
#include "common/times.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/line_format.h"
#include "quilctl/screen/display_width.h"
#include "quilctl/screen/live_table.h"
#include "quilctl/screen/text_table.h"
#include "quilctl/talk/monitor_session.h"
#include "quilctl/talk/shell_command.h"

namespace ecu::ctl {

namespace topics = tamu::com::topics;

namespace {

/// Prints the changes, or runs a command for each.
class Changes {
 public:
  Changes(const Options& options, const BusConnection& bus, const MonitorSession& session)
      : options_(options), bus_(bus), session_(session) {
    if (bus.is_local()) {
      clock_.use_local_clock();
    }
  }

  /// Whether the event is a change that the user asked for.
  bool handle(const Event& event) {
    if (event.kind == Event::Kind::settled) {
      note_unknown_names();
    }
    if (event.kind != Event::Kind::message) {
      return false;
    }
    const auto change = view_.take(event.text, event.message);
    if (change == VariableView::Change::faulty) {
      tools::note("cannot decode the message on " + event.text);
      return false;
    }
    if (event.text != topics::daemon_presence) {
      clock_.take(event.message);
    }
    if (change != VariableView::Change::changed ||
        !tools::matches_any(*tools::variable_of(event.text), options_.arguments)) {
      return false;
    }
    const std::string name(*tools::variable_of(event.text));
    report(event, {name, view_.find(name), tools::find_variable(name)});
    return true;
  }

 private:
  void note_unknown_names() const {
    try {
      require_known(view_, options_.arguments);
    } catch (const Failure& failure) {
      tools::note(failure.what());
    }
  }

  void report(const Event& event, const VariableRow& row) const {
    const auto value = row.value();
    if (!options_.exec.empty()) {
      run(row.name, value);
    } else if (options_.json) {
      print_json({{"at", tools::iso_time(event.at)},
                  {"name", row.name},
                  {"value", json_value(value)},
                  {"retained", event.message.retained}});
    } else if (!options_.format.empty()) {
      std::cout << formatted(options_.format, row, clock_, options_.raw) << std::endl;
    } else {
      std::cout << tools::local_time(event.at) << "  " << tools::printable(row.name) << "  "
                << (options_.raw && value ? *value : shown_value(value)) << std::endl;
    }
  }

  void run(const std::string& name, const std::optional<std::string>& value) const {
    const int code =
        run_shell_command(options_.exec, name, value ? std::optional(tools::printable(*value)) : value,
                          [this](int handle) { return bus_.wait_until_readable(handle, session_.end()); });
    if (code != 0) {
      tools::note("the command for " + name + " ended with exit code " + std::to_string(code));
    }
  }

  const Options& options_;
  const BusConnection& bus_;
  const MonitorSession& session_;
  VariableView view_;
  UnitClock clock_;
};

// False when a key ends the table.
bool handle_keys(LiveTable& table, TerminalScreen& screen) {
  for (KeyPress press = screen.next_key(); press.key != Key::none; press = screen.next_key()) {
    if (!table.handle(press)) {
      return false;
    }
  }
  return true;
}

void show(LiveTable& table, TerminalScreen& screen, MonitorSession& session) {
  while (session.goes_on(0) && handle_keys(table, screen)) {
    const auto wake = screen.is_entered() ? table.redraw_due() : LiveTable::Clock::time_point::max();
    const auto event = session.next(wake, screen.keyboard());
    if (!session.notice().empty()) {
      table.add_notice(session.notice());
    }
    if (event) {
      table.handle(*event);
    }
    if (session.was_up()) {
      screen.enter();
    }
    if (screen.is_entered() && LiveTable::Clock::now() >= table.redraw_due()) {
      screen.draw(table.draw(screen.width(), screen.height()));
    }
  }
}

// What remains on the normal screen.
void print_last(const LiveTable& table, TerminalScreen& screen) {
  if (!screen.is_entered()) {
    return;
  }
  const std::size_t width = screen.width();
  screen.leave();
  for (const ScreenLine& line : table.whole(width)) {
    std::cout << for_terminal(line.text) << '\n';
  }
}

}  // namespace

ExitCode watch(const Options& options) {
  const bool as_table = options.table && TerminalScreen::is_possible();
  if (options.table && !as_table) {
    tools::note("a table needs a terminal that can place text; printing a line for each change instead");
  }
  std::optional<TerminalScreen> screen;
  if (as_table) {
    screen.emplace();
  }
  BusConnection bus(options.broker);
  bus.subscribe(topics::all_variables_filter);
  bus.subscribe(topics::daemon_presence);
  if (as_table) {
    for (const char* const filter : LiveTable::more_filters) {
      bus.subscribe(filter);
    }
  }
  bus.connect();
  MonitorSession session(options, bus);
  LiveTable table(bus.broker(), bus.is_local(), options.arguments);
  try {
    if (screen) {
      show(table, *screen, session);
    } else {
      Changes changes(options, bus, session);
      session.run([&changes](const Event& event) { return changes.handle(event); });
    }
  } catch (const Interrupted&) {
    // The normal way to stop: Ctrl-C.
  }
  if (screen) {
    print_last(table, *screen);
  }
  note_losses(session);
  return std::cout ? ExitCode::done : ExitCode::failure;
}

}  // namespace ecu::ctl
