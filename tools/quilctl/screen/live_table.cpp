#include "quilctl/screen/live_table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <utility>

#include <ecu/tamu/rt/signal_adapter.h>

#include "quilctl/base/text.h"
#include "quilctl/model/values.h"
#include "quilctl/model/variable_catalogue.h"
#include "quilctl/model/variable_rows.h"
#include "quilctl/screen/text_table.h"

namespace ecu::ctl {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// A burst of changes is drawn once.
constexpr milliseconds redraw_delay{50};
constexpr seconds redraw_interval{1};
constexpr seconds highlight_time{3};
constexpr std::size_t essential_columns = 2;  // name and value
constexpr std::size_t news_shown = 4;
constexpr std::size_t lines_around_table = 2 + news_shown;  // heading, headings, and the news below

constexpr const char* ignition_topic = "rt/io/kl15";
constexpr const char* ignition_signal = "kl15";
constexpr const char* parameter_answer = "system/sysparam/";

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

// The ignition is on when the signal is valid and its first byte is not zero.
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

LiveTable::LiveTable(SecondScreen& screen, std::string broker, bool is_local,
                     std::function<bool(std::string_view)> wanted)
    : screen_(screen), broker_(std::move(broker)), wanted_(std::move(wanted)) {
  if (is_local) {
    clock_.take_own();
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
  static const std::vector<std::string> filters = {ignition_topic, parameter_answer};
  return filters;
}

void LiveTable::take(const Event& event) {
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
      take_message(event);
      break;
    case Event::Kind::refused:
      break;
  }
  draw_soon();
}

void LiveTable::take_news(const std::string& text) {
  add_news(std::chrono::system_clock::now(), printable(text));
  draw_soon();
}

void LiveTable::draw_soon() {
  if (screen_.is_entered()) {
    redraw_due_ = std::min(redraw_due_, Clock::now() + redraw_delay);
  }
}

void LiveTable::take_message(const Event& event) {
  if (event.text == ignition_topic) {
    const std::optional<bool> before = ignition_;
    if (const auto now = ignition_in(event)) {
      ignition_ = now;
    }
    if (ignition_ && ignition_ != before) {
      add_news(event.at, *ignition_ ? "ignition on" : "ignition off");
    }
    return;
  }
  const auto name = variable_of(event.text);
  const auto change = view_.take(event.text, event.message);
  if (change == VariableView::Change::faulty) {
    add_news(event.at, printable(*name) + "  cannot be decoded");
  } else if (event.text != daemon_presence) {
    clock_.take(event.message);
  }
  if (change != VariableView::Change::changed || !wanted_(*name)) {
    return;
  }
  if (settled_) {
    changed_[std::string(*name)] = Clock::now();
    const Variable* const variable = view_.find(*name);
    add_news(event.at,
             printable(*name) + "  " + shown_value(variable == nullptr ? std::nullopt : variable->value));
  }
}

void LiveTable::add_news(std::chrono::system_clock::time_point at, const std::string& text) {
  news_.push_back(local_time(at) + "  " + text);
  if (news_.size() > news_shown) {
    news_.pop_front();
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
  Table table(variable_headings(), essential_columns);
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
    all.push_back(cut_to_width("(" + std::to_string(hidden) + " more: make the terminal higher)", width));
  }
  for (const std::string& line : news_) {
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
  // Cleared before it is written: behind a line that fills its row the cursor still stands on the last
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
