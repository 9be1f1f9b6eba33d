#include "quilctl/screen/live_table.h"

#include <algorithm>
#include <array>
#include <utility>

#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/rt/signal_adapter.h>

#include "common/escaping.h"
#include "common/name_pattern.h"
#include "common/times.h"
#include "quilctl/screen/display_width.h"
#include "quilctl/screen/text_table.h"

namespace ecu::ctl {

namespace topics = tamu::com::topics;

namespace {

// One redraw shows a burst of changes.
constexpr std::chrono::milliseconds redraw_delay{50};
constexpr std::chrono::seconds redraw_interval{1};
constexpr std::chrono::seconds highlight_time{5};
constexpr std::size_t max_notices = 4;
constexpr std::size_t fixed_lines = 3;  // heading, headings of the table, keys
constexpr std::size_t low_height = 16;  // has room for one notice only
constexpr std::size_t mark_width = 2;   // of the mark of a fresh row

constexpr const char* ignition_signal = "kl15";
constexpr std::array order_names = {"none", "name", "age", "change"};

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

void remove_last_character(std::string& text) {
  const auto is_continuation = [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80U; };
  while (!text.empty() && is_continuation(text.back())) {
    text.pop_back();
  }
  text.resize(text.empty() ? 0 : text.size() - 1);
}

}  // namespace

LiveTable::LiveTable(std::string broker, bool is_local, std::vector<std::string> patterns)
    : broker_(std::move(broker)), patterns_(std::move(patterns)) {
  if (is_local) {
    clock_.use_local_clock();
  }
}

void LiveTable::handle(const Event& event) {
  connected_ = event.kind == Event::Kind::up || (connected_ && event.kind != Event::Kind::down);
  settled_ = settled_ || event.kind == Event::Kind::settled;
  if (event.kind == Event::Kind::message) {
    handle_message(event);
  }
  redraw_due_ = std::min(redraw_due_, Clock::now() + redraw_delay);
}

void LiveTable::add_notice(const std::string& text) {
  add_line(tools::wall_clock_now(), tools::printable(text));
}

void LiveTable::handle_message(const Event& event) {
  if (event.text == topics::ignition) {
    const auto now = ignition_in(event);
    if (now && std::exchange(ignition_, now) != now) {
      add_line(event.at, *now ? "ignition on" : "ignition off");
    }
    return;
  }
  const auto name = tools::variable_of(event.text);
  const auto change = view_.take(event.text, event.message);
  if (change == VariableView::Change::faulty) {
    add_line(event.at, tools::printable(*name) + "  cannot be decoded");
  } else if (event.text != topics::daemon_presence) {
    clock_.take(event.message);
  }
  if (change == VariableView::Change::changed && settled_ && tools::matches_any(*name, patterns_)) {
    changed_[std::string(*name)] = Clock::now();
    const Variable* const variable = view_.find(*name);
    add_line(event.at, tools::printable(*name) + "  " +
                           shown_value(variable == nullptr ? std::nullopt : variable->value));
  }
}

void LiveTable::add_line(std::chrono::system_clock::time_point at, const std::string& text) {
  notices_.push_back(tools::local_time(at) + "  " + text);
  if (notices_.size() > max_notices) {
    notices_.pop_front();
  }
}

bool LiveTable::handle(const KeyPress& press) {
  redraw_due_ = {};  // at once
  if (is_filter_edited_) {
    handle_filter_key(press);
    return true;
  }
  const auto page = static_cast<std::ptrdiff_t>(room_);
  const auto all = static_cast<std::ptrdiff_t>(rows().size());
  switch (press.key) {
    case Key::up:
    case Key::down:
      scroll(press.key == Key::up ? -1 : 1);
      break;
    case Key::page_up:
    case Key::page_down:
      scroll(press.key == Key::page_up ? -page : page);
      break;
    case Key::home:
    case Key::end:
      scroll(press.key == Key::home ? -all : all);
      break;
    default:
      break;
  }
  if (press.letter == 's') {
    order_ = static_cast<Order>((static_cast<std::size_t>(order_) + 1) % order_names.size());
  }
  is_filter_edited_ = press.letter == '/';
  return press.letter != 'q';
}

void LiveTable::handle_filter_key(const KeyPress& press) {
  if (press.key == Key::backspace) {
    remove_last_character(filter_);
  } else if (press.key == Key::letter && press.letter != '\0') {
    filter_ += press.letter;
  } else if (press.key == Key::escape) {
    filter_.clear();
  }
  is_filter_edited_ = press.key != Key::enter && press.key != Key::escape;
}

void LiveTable::scroll(std::ptrdiff_t by) {
  const std::size_t count = rows().size();
  const auto last = static_cast<std::ptrdiff_t>(count > room_ ? count - room_ : 0);
  top_ =
      static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(static_cast<std::ptrdiff_t>(top_) + by, 0, last));
}

ScreenLine LiveTable::heading() const {
  const auto presence = view_.daemon_on_line();
  std::string text = connected_ ? "daemon " : "NO CONNECTION  daemon ";
  text += presence == true ? "on line" : presence == false ? "OFF LINE" : "unknown";
  if (ignition_) {
    text += std::string("  ignition ") + (*ignition_ ? "on" : "off");
  }
  text += "  " + std::to_string(view_.with_value()) + " of " + std::to_string(tools::variables().size()) +
          " values  " + broker_;
  return {text, connected_ && presence != false ? Look::plain : Look::alarm};
}

Look LiveTable::look_of(const VariableRow& row) const {
  const auto change = changed_.find(row.name);
  if (change != changed_.end() && Clock::now() - change->second < highlight_time) {
    return Look::fresh;
  }
  return !row.value()                                     ? Look::missing
         : !connected_ || view_.daemon_on_line() == false ? Look::stale
                                                          : Look::plain;
}

std::vector<VariableRow> LiveTable::rows() const {
  std::vector<VariableRow> rows = variable_rows(view_, patterns_);
  std::erase_if(rows, [this](const VariableRow& row) {
    return row.name.find(filter_) == std::string::npos &&
           row.value().value_or("").find(filter_) == std::string::npos;
  });
  const auto last_change = [this](const VariableRow& row) {
    const auto change = changed_.find(row.name);
    return change == changed_.end() ? Clock::time_point::min() : change->second;
  };
  const auto set_at = [](const VariableRow& row) { return row.value() ? row.variable->timestamp : 0; };
  if (order_ == Order::name) {
    std::ranges::sort(rows, {}, &VariableRow::name);
  } else if (order_ == Order::age) {
    std::ranges::stable_sort(rows, std::greater(), set_at);
  } else if (order_ == Order::change) {
    std::ranges::stable_sort(rows, std::greater(), last_change);
  }
  return rows;
}

std::vector<ScreenLine> LiveTable::table_lines(std::size_t width) const {
  TextTable table(variable_headings(), essential_variable_columns);
  std::vector<Look> looks = {Look::heading};
  for (const VariableRow& row : rows()) {
    table.add(columns_of(row, clock_));
    looks.push_back(look_of(row));
  }
  std::vector<ScreenLine> lines;
  for (std::string& line : table.lines(width > mark_width ? width - mark_width : 0)) {
    const Look look = looks[lines.size()];
    lines.push_back({(look == Look::fresh ? "* " : "  ") + std::move(line), look});
  }
  return lines;
}

std::string LiveTable::key_line(std::size_t count) const {
  if (is_filter_edited_) {
    return '/' + tools::printable(filter_) + "_  Enter keeps it, Esc clears it";
  }
  const std::string range = std::to_string(std::min(top_ + 1, count)) + '-' +
                            std::to_string(std::min(top_ + room_, count)) + '/' + std::to_string(count);
  return "q quit  / " + (filter_.empty() ? "filter" : tools::printable(filter_)) +
         "  s sort: " + order_names[static_cast<std::size_t>(order_)] + "  " + range;
}

std::vector<ScreenLine> LiveTable::whole(std::size_t width) const {
  std::vector<ScreenLine> all = {heading()};
  for (ScreenLine& line : table_lines(width)) {
    all.push_back(std::move(line));
  }
  for (const std::string& line : notices_) {
    all.push_back({line});
  }
  for (ScreenLine& line : all) {
    line.text = cut_to_width(line.text, width);
  }
  return all;
}

std::vector<ScreenLine> LiveTable::draw(std::size_t width, std::size_t height) {
  redraw_due_ = Clock::now() + redraw_interval;
  const std::size_t notices = std::min(notices_.size(), height < low_height ? 1 : max_notices);
  room_ = height > fixed_lines + notices ? height - fixed_lines - notices : 1;
  scroll(0);
  std::vector<ScreenLine> all = whole(width);
  const std::size_t count = all.size() - notices_.size() - 2;
  const auto first = all.begin() + 2;  // after the headings
  const auto rows_end = first + static_cast<std::ptrdiff_t>(count);
  std::vector<ScreenLine> shown(all.begin(), first);
  const auto row = [&](std::size_t number) { return first + static_cast<std::ptrdiff_t>(number); };
  shown.insert(shown.end(), row(top_), row(std::min(top_ + room_, count)));
  shown.resize(2 + room_);
  shown.insert(shown.end(), rows_end + static_cast<std::ptrdiff_t>(notices_.size() - notices), all.end());
  shown.push_back({cut_to_width(key_line(count), width), Look::heading});
  shown.resize(std::min(shown.size(), height));
  return shown;
}

}  // namespace ecu::ctl
