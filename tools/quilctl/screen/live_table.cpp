#include "quilctl/screen/live_table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <utility>

#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/rt/signal_adapter.h>

#include "quilctl/base/escaping.h"
#include "quilctl/model/times.h"
#include "quilctl/model/values.h"
#include "quilctl/model/variable_catalogue.h"
#include "quilctl/model/variable_rows.h"
#include "quilctl/screen/display_width.h"
#include "quilctl/screen/text_table.h"

namespace ecu::ctl {

namespace topics = tamu::com::topics;

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// One redraw shows a burst of changes.
constexpr milliseconds redraw_delay{50};
constexpr seconds redraw_interval{1};
constexpr seconds highlight_time{3};
constexpr std::size_t essential_columns = 2;  // name and value
constexpr std::size_t max_notices = 4;
constexpr std::size_t lines_around_table = 2 + max_notices;  // heading, headings, and the notices below

constexpr const char* ignition_signal = "kl15";

constexpr const char* go_home = "\x1b[H";
constexpr const char* clear_line = "\x1b[2K";
constexpr const char* clear_below = "\x1b[J";
constexpr const char* bold = "\x1b[1m";
constexpr const char* plain = "\x1b[0m";

struct TerminalSize {
  std::size_t width = 80;
  std::size_t height = 24;
};

TerminalSize terminal_size() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
    return {};
  }
  return {size.ws_col, size.ws_row};
}

// On when the first byte is not zero; nothing without a valid signal.
std::optional<bool> ignition_in(const Event& event) {
  const auto group = tamu::rt::SignalAdapter::instance().unpack(event.text, event.message);
  if (!group) {
    return std::nullopt;
  }
  const tamu::rt::Signal* const signal = (*group)->signal(ignition_signal);
  if (signal == nullptr || signal->status() != tamu::rt::signal_valid || signal->data().empty()) {
    return std::nullopt;
  }
  return signal->data().front() != 0;
}

}  // namespace

LiveTable::LiveTable(AlternateScreen& screen, std::string broker, bool is_local,
                     std::function<bool(std::string_view)> wanted)
    : screen_(screen), broker_(std::move(broker)), wanted_(std::move(wanted)) {
  if (is_local) {
    clock_.use_local_clock();
  }
}

LiveTable::~LiveTable() {
  if (!screen_.is_entered()) {
    return;
  }
  screen_.leave();
  for (const std::string& line : lines(terminal_size().width, std::string::npos)) {
    std::cout << line << '\n';
  }
  std::cout << std::flush;
}

const std::vector<std::string>& LiveTable::more_filters() {
  static const std::vector<std::string> filters = {topics::ignition, topics::parameter_answer};
  return filters;
}

void LiveTable::handle(const Event& event) {
  switch (event.kind) {
    case Event::Kind::up:
      connected_ = true;
      screen_.enter();
      break;
    case Event::Kind::down:
      connected_ = false;
      break;
    case Event::Kind::settled:
      settled_ = true;
      break;
    case Event::Kind::message:
      handle_message(event);
      break;
    case Event::Kind::refused:
      break;
  }
  schedule_redraw();
}

void LiveTable::add_notice(const std::string& text) {
  add_line(wall_clock_now(), printable(text));
  schedule_redraw();
}

void LiveTable::schedule_redraw() {
  if (screen_.is_entered()) {
    redraw_due_ = std::min(redraw_due_, Clock::now() + redraw_delay);
  }
}

void LiveTable::handle_message(const Event& event) {
  if (event.text == topics::ignition) {
    const std::optional<bool> before = ignition_;
    if (const auto now = ignition_in(event)) {
      ignition_ = now;
    }
    if (ignition_ && ignition_ != before) {
      add_line(event.at, *ignition_ ? "ignition on" : "ignition off");
    }
    return;
  }
  const auto name = variable_of(event.text);
  const auto change = view_.take(event.text, event.message);
  if (change == VariableView::Change::faulty) {
    add_line(event.at, printable(*name) + "  cannot be decoded");
  } else if (event.text != topics::daemon_presence) {
    clock_.take(event.message);
  }
  if (change != VariableView::Change::changed || !wanted_(*name)) {
    return;
  }
  if (settled_) {
    changed_[std::string(*name)] = Clock::now();
    const Variable* const variable = view_.find(*name);
    add_line(event.at,
             printable(*name) + "  " + shown_value(variable == nullptr ? std::nullopt : variable->value));
  }
}

void LiveTable::add_line(std::chrono::system_clock::time_point at, const std::string& text) {
  notices_.push_back(local_time(at) + "  " + text);
  if (notices_.size() > max_notices) {
    notices_.pop_front();
  }
}

std::string LiveTable::heading() const {
  const auto presence = view_.daemon_on_line();
  std::string text = connected_ ? "daemon " : "NO CONNECTION   daemon ";
  text += presence == true ? "on line" : presence == false ? "OFF LINE" : "unknown";
  if (ignition_) {
    text += std::string("   ignition ") + (*ignition_ ? "on" : "off");
  }
  return text + "   " + std::to_string(view_.with_value()) + " of " + std::to_string(variables().size()) +
         " variables have a value   " + broker_;
}

std::vector<std::string> LiveTable::table_lines(std::size_t width) const {
  TextTable table(variable_headings(), essential_columns);
  std::vector<bool> is_fresh = {false};  // the headings
  for (const VariableRow& row : variable_rows(view_)) {
    if (wanted_(row.name)) {
      table.add(columns_of(row, clock_));
      const auto change = changed_.find(row.name);
      is_fresh.push_back(change != changed_.end() && Clock::now() - change->second < highlight_time);
    }
  }
  std::vector<std::string> lines = table.lines(width);
  const bool colour = OutputStyle::of_standard_output().colour;
  for (std::size_t i = 0; colour && i < lines.size(); ++i) {
    if (i == 0 || is_fresh[i]) {
      lines[i] = bold + lines[i] + plain;
    }
  }
  return lines;
}

std::vector<std::string> LiveTable::lines(std::size_t width, std::size_t height) const {
  std::vector<std::string> all = {cut_to_width(heading(), width)};
  std::vector<std::string> table = table_lines(width);
  const std::size_t room = height > lines_around_table ? height - lines_around_table : 1;
  const std::size_t hidden = table.size() > room ? table.size() - room + 1 : 0;
  all.insert(all.end(), table.begin(), table.end() - static_cast<std::ptrdiff_t>(hidden));
  if (hidden > 0) {
    all.push_back(cut_to_width("(" + std::to_string(hidden) + " more rows: enlarge the terminal)", width));
  }
  for (const std::string& line : notices_) {
    all.push_back(cut_to_width(line, width));
  }
  if (all.size() > height) {
    all.resize(height);
  }
  return all;
}

void LiveTable::draw(std::ostream& out) {
  const TerminalSize size = terminal_size();
  const std::vector<std::string> shown = lines(size.width, size.height);
  std::string screen = go_home;
  // Each row is cleared before it is written: after a line that fills its row the cursor is still on the last
  // column.
  for (std::size_t i = 0; i < shown.size(); ++i) {
    screen += (i == 0 ? "" : "\r\n") + (clear_line + shown[i]);
  }
  if (shown.size() < size.height) {
    screen += std::string("\r\n") + clear_below;
  }
  out << screen << std::flush;
  redraw_due_ = Clock::now() + redraw_interval;
}

}  // namespace ecu::ctl
