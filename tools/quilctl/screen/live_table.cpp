#include "quilctl/screen/live_table.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "common/escaping.h"
#include "common/times.h"
#include "quilctl/screen/display_width.h"
#include "quilctl/screen/variable_output.h"

namespace ecu::ctl {

namespace {

// One redraw shows a burst of changes.
constexpr std::chrono::milliseconds redraw_delay{50};
constexpr std::chrono::seconds redraw_interval{1};
constexpr std::chrono::seconds highlight_time{5};
constexpr std::ptrdiff_t max_notices = 4;
constexpr std::ptrdiff_t fixed_lines = 3;  // heading, headings of the table, keys
constexpr std::size_t low_height = 16;     // has room for one notice only
constexpr std::size_t mark_width = 2;      // of the mark of a fresh row

constexpr std::array order_names = {"none", "name", "age", "change"};

void remove_last_character(std::string& text) {
  const auto is_continuation = [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80U; };
  while (!text.empty() && is_continuation(text.back())) {
    text.pop_back();
  }
  text.resize(text.empty() ? 0 : text.size() - 1);
}

std::pair<std::string, std::string> key_of(const VariableRow& row) {
  return {row.unit_name(), row.name};
}

}  // namespace

void LiveTable::handle(const Event& event) {
  connected_ = event.kind == Event::Kind::up || (connected_ && event.kind != Event::Kind::down);
  settled_ = settled_ || event.kind == Event::Kind::settled;
  const auto update = source_.take(event);
  if (!update.notice.empty()) {
    add_line(event.at, tools::printable(update.notice));
  }
  if (update.changed && settled_) {
    changed_[key_of(*update.changed)] = Clock::now();
    add_line(event.at, line_of(*update.changed));
  }
  redraw_due_ = std::min(redraw_due_, Clock::now() + redraw_delay);
}

void LiveTable::add_notice(const std::string& text) {
  add_line(tools::wall_clock_now(), tools::printable(text));
}

void LiveTable::add_line(std::chrono::system_clock::time_point at, const std::string& text) {
  notices_.push_back(tools::local_time(at) + "  " + text);
  if (std::ssize(notices_) > max_notices) {
    notices_.pop_front();
  }
}

bool LiveTable::handle(const KeyPress& press) {
  redraw_due_ = {};  // at once
  if (is_filter_edited_) {
    handle_filter_key(press);
    return true;
  }
  const std::pair<Key, std::ptrdiff_t> steps[] = {{Key::up, -1},          {Key::down, 1},
                                                  {Key::page_up, -room_}, {Key::page_down, room_},
                                                  {Key::home, -count_},   {Key::end, count_}};
  for (const auto& [key, step] : steps) {
    if (press.key == key) {
      scroll(step);
    }
  }
  if (press.letter == 's') {
    order_ = static_cast<Order>((static_cast<std::size_t>(order_) + 1) % order_names.size());
  }
  is_filter_edited_ = press.letter == '/';
  return press.letter != 'q';
}

void LiveTable::handle_filter_key(const KeyPress& press) {
  top_ = 0;
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
  top_ = std::clamp<std::ptrdiff_t>(top_ + by, 0, std::max<std::ptrdiff_t>(count_ - room_, 0));
}

ScreenLine LiveTable::heading() const {
  const auto [text, is_alarming] = source_.summary();
  return {(connected_ ? "" : "NO CONNECTION  ") + text + "  " + broker_,
          !connected_ || is_alarming ? Look::alarm : Look::plain};
}

LiveTable::Clock::time_point LiveTable::last_change(const VariableRow& row) const {
  const auto change = changed_.find(key_of(row));
  return change == changed_.end() ? Clock::time_point::min() : change->second;
}

Look LiveTable::look_of(const VariableRow& row) const {
  const auto change = last_change(row);
  if (change != Clock::time_point::min() && Clock::now() - change < highlight_time) {
    return Look::fresh;
  }
  return !row.value() ? Look::missing : !connected_ || source_.is_stale(row) ? Look::stale : Look::plain;
}

std::vector<VariableRow> LiveTable::rows() const {
  std::vector<VariableRow> rows = source_.rows();
  std::erase_if(rows, [this](const VariableRow& row) {
    return !filter_.empty() && line_of(row).find(filter_) == std::string::npos;
  });
  if (order_ == Order::name) {
    std::ranges::stable_sort(rows, {}, &VariableRow::name);
  } else if (order_ == Order::age) {
    std::ranges::stable_sort(rows, std::greater(), &VariableRow::set_at);
  } else if (order_ == Order::change) {
    std::ranges::stable_sort(rows, std::greater(),
                             [this](const VariableRow& row) { return last_change(row); });
  }
  return rows;
}

std::vector<ScreenLine> LiveTable::table_lines(std::size_t width) const {
  const std::vector<VariableRow> rows = this->rows();
  const TextTable table = table_of(rows, source_.clock(), source_.is_of_fleet());
  std::vector<ScreenLine> lines;
  for (std::string& line : table.lines(width > mark_width ? width - mark_width : 0)) {
    const Look look = lines.empty() ? Look::heading : look_of(rows[lines.size() - 1]);
    lines.push_back({(look == Look::fresh ? "* " : "  ") + std::move(line), look});
  }
  return lines;
}

std::string LiveTable::key_line() const {
  if (is_filter_edited_) {
    return '/' + tools::printable(filter_) + "_  Enter keeps it, Esc clears it";
  }
  const std::string range = std::to_string(std::min(top_ + 1, count_)) + '-' +
                            std::to_string(std::min(top_ + room_, count_)) + '/' + std::to_string(count_);
  return "q quit  / " + (filter_.empty() ? "filter" : tools::printable(filter_)) +
         "  s sort: " + order_names[static_cast<std::size_t>(order_)] + "  " + range;
}

std::vector<ScreenLine> LiveTable::whole(std::size_t width) const {
  std::vector<ScreenLine> all = {heading()};
  std::ranges::move(table_lines(width), std::back_inserter(all));
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
  const std::ptrdiff_t notices = std::min(std::ssize(notices_), height < low_height ? 1 : max_notices);
  room_ = std::max<std::ptrdiff_t>(static_cast<std::ptrdiff_t>(height) - fixed_lines - notices, 1);
  const std::vector<ScreenLine> all = whole(width);
  count_ = std::ssize(all) - std::ssize(notices_) - 2;
  scroll(0);
  const auto first = all.begin() + 2;  // after the headings
  std::vector<ScreenLine> shown(all.begin(), first);
  shown.insert(shown.end(), first + top_, first + std::min(top_ + room_, count_));
  shown.resize(static_cast<std::size_t>(2 + room_));
  shown.insert(shown.end(), all.end() - notices, all.end());
  shown.push_back({cut_to_width(key_line(), width), Look::heading});
  shown.resize(std::min(shown.size(), height));
  return shown;
}

}  // namespace ecu::ctl
