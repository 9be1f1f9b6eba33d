#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "common/notes.h"
#include "common/times.h"
#include "quilctl/commands/commands.h"
#include "quilctl/fleet/fleet_source.h"
#include "quilctl/model/line_format.h"
#include "quilctl/screen/display_width.h"
#include "quilctl/screen/live_table.h"
#include "quilctl/talk/monitor_session.h"
#include "quilctl/talk/shell_command.h"
#include "quilctl/talk/unit_source.h"

namespace ecu::ctl {

namespace {

/// Prints the changes, or runs a command for each.
class Changes {
 public:
  Changes(const Options& options, const MonitorSession& session, VariableSource& source)
      : options_(options), session_(session), source_(source) {}

  /// Whether the event is a change that the user asked for.
  bool handle(const Event& event) {
    if (event.kind == Event::Kind::settled) {
      note_unknown_names();
    }
    const auto update = source_.take(event);
    tools::note(update.notice);
    if (update.changed) {
      report(event, *update.changed);
    }
    return update.changed.has_value();
  }

 private:
  void note_unknown_names() const {
    try {
      source_.require_known();
    } catch (const Failure& failure) {
      tools::note(failure.what());
    }
  }

  void report(const Event& event, const VariableRow& row) const {
    if (!options_.exec.empty()) {
      run(row, event.message.retained);
    } else if (options_.json) {
      Json change{{"at", tools::iso_time(event.at)}};
      if (row.unit != nullptr) {
        change["unit"] = json_value(row.unit->name);
      }
      change["name"] = json_value(row.name);
      change["value"] = json_value(row.value());
      change["retained"] = event.message.retained;
      print_json(change);
    } else if (!options_.format.empty()) {
      std::cout << formatted(options_.format, row, source_.clock(), options_.raw) << std::endl;
    } else {
      std::cout << tools::local_time(event.at) << "  " << line_of(row, options_.raw) << std::endl;
    }
  }

  void run(const VariableRow& row, bool is_retained) const try {
    const int code = run_shell_command(options_.exec, row, is_retained, [this](int handle) {
      return session_.bus().wait_until_readable(handle, session_.end());
    });
    if (code != 0) {
      tools::note("the command for " + row.name + " ended with exit code " + std::to_string(code));
    }
  } catch (const std::system_error& failure) {
    if (failure.code() != std::errc::argument_list_too_long) {
      throw;
    }
    tools::note("the value of " + row.name + " is too long for a command");
  }

  const Options& options_;
  const MonitorSession& session_;
  VariableSource& source_;
};

// False when a key ends the table.
bool handle_keys(LiveTable& table, TerminalScreen& screen) {
  KeyPress press = screen.next_key();
  while (press.key != Key::none && table.handle(press)) {
    press = screen.next_key();
  }
  return press.key == Key::none;
}

void follow(LiveTable& table, TerminalScreen& screen, MonitorSession& session) {
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

void show(LiveTable& table, TerminalScreen& screen, MonitorSession& session) {
  try {
    follow(table, screen, session);
  } catch (const Interrupted&) {
    // The normal way to stop: Ctrl-C.
  }
  print_last(table, screen);
  tools::note(session.loss_notice());
}

std::unique_ptr<VariableSource> source_of(const Options& options) {
  if (options.fleet) {
    return std::make_unique<FleetSource>(options);
  }
  return std::make_unique<UnitSource>(options.arguments);
}

}  // namespace

ExitCode watch(const Options& options) {
  std::optional<TerminalScreen> screen;
  if (options.table && TerminalScreen::is_possible()) {
    screen.emplace();
  } else if (options.table) {
    tools::note("a table needs a terminal that can place text; printing a line for each change instead");
  }
  const std::unique_ptr<VariableSource> source = source_of(options);
  MonitorSession session(options, source->filters(screen.has_value()), 0, source.get());
  if (session.bus().is_local()) {
    source->use_local_clock();
  }
  if (screen) {
    LiveTable table(session.bus().broker(), *source);
    show(table, *screen, session);
  } else {
    Changes changes(options, session, *source);
    session.run([&changes](const Event& event) { return changes.handle(event); });
  }
  return ExitCode::done;
}

}  // namespace ecu::ctl
