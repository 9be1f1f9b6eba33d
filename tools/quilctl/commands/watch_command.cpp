#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <optional>
#include <string>

#include "quilctl/base/notes.h"
#include "quilctl/base/text.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/values.h"
#include "quilctl/model/variable_view.h"
#include "quilctl/screen/alternate_screen.h"
#include "quilctl/screen/live_table.h"
#include "quilctl/talk/bus_connection.h"
#include "quilctl/talk/monitor_session.h"

namespace ecu::ctl {

namespace {

bool is_wanted(const Options& options, std::string_view name) {
  return options.words.empty() || std::ranges::any_of(options.words, [name](const std::string& pattern) {
           return matches_pattern(name, pattern);
         });
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

void watch_lines(const Options& options, LongWatch& watch) {
  VariableView view;
  while (std::cout) {
    const auto event = watch.next();
    if (!watch.news().empty()) {
      note(watch.news());
    }
    if (!event || event->kind != Event::Kind::message) {
      continue;
    }
    const auto change = view.take(event->text, event->message);
    if (change == VariableView::Change::faulty) {
      note("a message on " + event->text + " cannot be decoded");
    } else if (change == VariableView::Change::changed && is_wanted(options, *variable_of(event->text))) {
      print_change(options, *event, view);
    }
  }
}

std::optional<Event> next(LongWatch& watch, Bus::Clock::time_point wake) {
  const SecondScreen::Stoppable while_waiting;
  return watch.next(wake);
}

void watch_table(const Options& options, const Bus& bus, LongWatch& watch, SecondScreen& screen) {
  LiveTable table(screen, bus.broker(), bus.is_local(),
                  [&options](std::string_view name) { return is_wanted(options, name); });
  for (;;) {
    const auto event = next(watch, table.redraw_due());
    if (!watch.news().empty()) {
      table.take_news(watch.news());
    }
    if (event) {
      table.take(*event);
    }
    if (Bus::Clock::now() >= table.redraw_due()) {
      table.draw(std::cout);
    }
  }
}

}  // namespace

ExitCode watch(const Options& options) {
  const bool as_table = options.table && ::isatty(STDOUT_FILENO) == 1;
  if (options.table && !as_table) {
    note("a table needs a terminal: a line a change instead");
  }
  std::optional<SecondScreen> screen;
  if (as_table) {
    screen.emplace();
  }
  Bus bus(options.broker);
  bus.subscribe(all_variables);
  bus.subscribe(daemon_presence);
  if (as_table) {
    for (const std::string& filter : LiveTable::more_filters()) {
      bus.subscribe(filter);
    }
  }
  bus.connect();
  LongWatch watch(options, bus);
  try {
    if (screen) {
      watch_table(options, bus, watch, *screen);
    } else {
      watch_lines(options, watch);
    }
  } catch (const Interrupted&) {
    // The way for a watch to end.
  }
  screen.reset();
  note_losses(watch);
  return std::cout ? ExitCode::done : ExitCode::failure;
}

}  // namespace ecu::ctl
