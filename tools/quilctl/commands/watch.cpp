#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <optional>
#include <string>

#include <ecu/tamu/com/topics.h>

#include "quilctl/base/escaping.h"
#include "quilctl/base/name_pattern.h"
#include "quilctl/base/notes.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/times.h"
#include "quilctl/model/values.h"
#include "quilctl/model/variable_view.h"
#include "quilctl/screen/alternate_screen.h"
#include "quilctl/screen/live_table.h"
#include "quilctl/talk/bus_connection.h"
#include "quilctl/talk/monitor_session.h"

namespace ecu::ctl {

namespace topics = tamu::com::topics;

namespace {

bool is_wanted(const Options& options, std::string_view name) {
  return options.arguments.empty() ||
         std::ranges::any_of(options.arguments,
                             [name](const std::string& pattern) { return matches_pattern(name, pattern); });
}

void print_change(const Options& options, const Event& event, const VariableView& view) {
  const std::string name(*variable_of(event.text));
  const Variable* const variable = view.find(name);
  const std::optional<std::string> value = variable == nullptr ? std::nullopt : variable->value;
  if (options.json) {
    print_json({{"at", iso_time(event.at)}, {"name", name}, {"value", json_value(value)}});
  } else {
    std::cout << local_time(event.at) << "  " << printable(name) << "  "
              << (options.raw && value ? *value : shown_value(value)) << std::endl;
  }
}

void watch_lines(const Options& options, MonitorSession& session) {
  VariableView view;
  while (std::cout) {
    const auto event = session.next();
    if (!session.notice().empty()) {
      note(session.notice());
    }
    if (!event || event->kind != Event::Kind::message) {
      continue;
    }
    const auto change = view.take(event->text, event->message);
    if (change == VariableView::Change::faulty) {
      note("cannot decode the message on " + event->text);
    } else if (change == VariableView::Change::changed && is_wanted(options, *variable_of(event->text))) {
      print_change(options, *event, view);
    }
  }
}

std::optional<Event> next(MonitorSession& session, BusConnection::Clock::time_point wake) {
  const AlternateScreen::Stoppable while_waiting;
  return session.next(wake);
}

void watch_table(const Options& options, const BusConnection& bus, MonitorSession& session,
                 AlternateScreen& screen) {
  LiveTable table(screen, bus.broker(), bus.is_local(),
                  [&options](std::string_view name) { return is_wanted(options, name); });
  for (;;) {
    const auto event = next(session, table.redraw_due());
    if (!session.notice().empty()) {
      table.add_notice(session.notice());
    }
    if (event) {
      table.handle(*event);
    }
    if (BusConnection::Clock::now() >= table.redraw_due()) {
      table.draw(std::cout);
    }
  }
}

}  // namespace

ExitCode watch(const Options& options) {
  const bool as_table = options.table && ::isatty(STDOUT_FILENO) == 1;
  if (options.table && !as_table) {
    note("a table needs a terminal; printing a line for each change instead");
  }
  std::optional<AlternateScreen> screen;
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
      watch_table(options, bus, session, *screen);
    } else {
      watch_lines(options, session);
    }
  } catch (const Interrupted&) {
    // The usual end.
  }
  screen.reset();
  note_losses(session);
  return std::cout ? ExitCode::done : ExitCode::failure;
}

}  // namespace ecu::ctl
