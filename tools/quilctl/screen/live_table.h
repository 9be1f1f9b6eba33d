#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "quilctl/screen/terminal_screen.h"
#include "quilctl/talk/bus_connection.h"
#include "quilctl/talk/variable_source.h"

namespace ecu::ctl {

/// What a live table of variables shows: it follows the bus and the keyboard.
class LiveTable {
 public:
  using Clock = BusConnection::Clock;

  /// `source` must outlive the table.
  LiveTable(std::string broker, VariableSource& source) : broker_(std::move(broker)), source_(source) {}

  void handle(const Event& event);
  /// Scrolls (arrows, page keys, Home, End), edits the filter after "/", or sorts by something else ("s").
  /// False for "q", which ends the table.
  [[nodiscard]] bool handle(const KeyPress& press);
  /// Adds a line with the time below the table.
  void add_notice(const std::string& text);

  /// The time of the next redraw: shortly after a change, and once a second for the ages.
  [[nodiscard]] Clock::time_point redraw_due() const noexcept { return redraw_due_; }
  /// The lines for a screen of this size.
  [[nodiscard]] std::vector<ScreenLine> draw(std::size_t width, std::size_t height);
  /// The whole table, without the lines about keys.
  [[nodiscard]] std::vector<ScreenLine> whole(std::size_t width) const;

 private:
  enum class Order { catalogue, name, age, change };

  void handle_filter_key(const KeyPress& press);
  void scroll(std::ptrdiff_t rows);
  void add_line(std::chrono::system_clock::time_point at, const std::string& text);
  [[nodiscard]] ScreenLine heading() const;
  [[nodiscard]] Clock::time_point last_change(const VariableRow& row) const;
  [[nodiscard]] Look look_of(const VariableRow& row) const;
  [[nodiscard]] std::vector<VariableRow> rows() const;
  [[nodiscard]] std::vector<ScreenLine> table_lines(std::size_t width) const;
  [[nodiscard]] std::string key_line() const;

  const std::string broker_;
  VariableSource& source_;
  bool connected_ = false;
  bool settled_ = false;
  /// The times of the last changes, by unit and name.
  std::map<std::pair<std::string, std::string>, Clock::time_point> changed_;
  std::deque<std::string> notices_;  // the last few
  Clock::time_point redraw_due_;     // at once

  Order order_ = Order::catalogue;
  std::string filter_;  // rows contain it
  bool is_filter_edited_ = false;
  std::ptrdiff_t top_ = 0;    // the first row that is shown
  std::ptrdiff_t room_ = 1;   // rows on the screen
  std::ptrdiff_t count_ = 0;  // rows when the table was drawn last
};

}  // namespace ecu::ctl
