#include <unistd.h>

#include <iostream>
#include <optional>
#include <string>

#include <ecu/tamu/com/topics.h>

#include "common/escaping.h"
#include "common/notes.h"
#include "quilctl/base/name_pattern.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/line_format.h"
#include "quilctl/model/times.h"
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
  Changes(const Options& options, const BusConnection& bus) : options_(options), bus_(bus) {
    if (bus.is_local()) {
      clock_.use_local_clock();
    }
  }

  void handle(const Event& event) {
    if (event.kind == Event::Kind::settled) {
      note_unknown_names();
    }
    if (event.kind != Event::Kind::message) {
      return;
    }
    const auto change = view_.take(event.text, event.message);
    if (change == VariableView::Change::faulty) {
      tools::note("cannot decode the message on " + event.text);
      return;
    }
    if (event.text != topics::daemon_presence) {
      clock_.take(event.message);
    }
    if (change == VariableView::Change::changed &&
        matches_any(*variable_of(event.text), options_.arguments)) {
      const std::string name(*variable_of(event.text));
      ++count_;
      report(event, {name, view_.find(name), tools::find_variable(name)});
    }
  }

  [[nodiscard]] unsigned count() const noexcept { return count_; }

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
      print_json({{"at", iso_time(event.at)},
                  {"name", row.name},
                  {"value", json_value(value)},
                  {"retained", event.message.retained}});
    } else if (!options_.format.empty()) {
      std::cout << formatted(options_.format, row, clock_, options_.raw) << std::endl;
    } else {
      std::cout << local_time(event.at) << "  " << tools::printable(row.name) << "  "
                << (options_.raw && value ? *value : shown_value(value)) << std::endl;
    }
  }

  void run(const std::string& name, const std::optional<std::string>& value) const {
    const int code =
        run_shell_command(options_.exec, name, value ? std::optional(tools::printable(*value)) : value,
                          [this](int handle) { bus_.wait_until_readable(handle); });
    if (code != 0) {
      tools::note("the command for " + name + " ended with exit code " + std::to_string(code));
    }
  }

  const Options& options_;
  const BusConnection& bus_;
  VariableView view_;
  UnitClock clock_;
  unsigned count_ = 0;
};

void watch_lines(const Options& options, const BusConnection& bus, MonitorSession& session) {
  Changes changes(options, bus);
  while (session.goes_on(changes.count())) {
    const auto event = session.next();
    if (!session.notice().empty()) {
      tools::note(session.notice());
    }
    if (event) {
      changes.handle(*event);
    }
  }
  session.require_count(changes.count());
}

/// The table on the screen, and once more on the normal screen at the end.
class ShownTable {
 public:
  ShownTable(const Options& options, const BusConnection& bus, TerminalScreen& screen)
      : screen_(screen), table_(bus.broker(), bus.is_local(), options.arguments) {}
  ~ShownTable() {
    if (!screen_.is_entered()) {
      return;
    }
    const std::size_t width = screen_.width();
    screen_.leave();
    for (const ScreenLine& line : table_.whole(width)) {
      std::cout << for_terminal(line.text) << '\n';
    }
    std::cout << std::flush;
  }
  ShownTable(const ShownTable&) = delete;
  ShownTable& operator=(const ShownTable&) = delete;

  void run(MonitorSession& session) {
    while (session.goes_on(0) && handle_keys()) {
      const auto wake = screen_.is_entered() ? table_.redraw_due() : LiveTable::Clock::time_point::max();
      const auto event = session.next(wake, screen_.keyboard());
      if (!session.notice().empty()) {
        table_.add_notice(session.notice());
      }
      if (event) {
        table_.handle(*event);
      }
      if (session.was_up()) {
        screen_.enter();
      }
      if (screen_.is_entered() && LiveTable::Clock::now() >= table_.redraw_due()) {
        screen_.draw(table_.draw(screen_.width(), screen_.height()));
      }
    }
  }

 private:
  bool handle_keys() {
    for (KeyPress press = screen_.next_key(); press.key != Key::none; press = screen_.next_key()) {
      if (!table_.handle(press)) {
        return false;
      }
    }
    return true;
  }

  TerminalScreen& screen_;
  LiveTable table_;
};

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
    for (const std::string& filter : LiveTable::more_filters()) {
      bus.subscribe(filter);
    }
  }
  bus.connect();
  MonitorSession session(options, bus);
  try {
    if (screen) {
      ShownTable(options, bus, *screen).run(session);
    } else {
      watch_lines(options, bus, session);
    }
  } catch (const Interrupted&) {
    // The usual end.
  }
  note_losses(session);
  return std::cout ? ExitCode::done : ExitCode::failure;
}

}  // namespace ecu::ctl
