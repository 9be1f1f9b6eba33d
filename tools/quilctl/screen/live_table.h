#pragma once

#include <array>
#include <chrono>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <ecu/tamu/com/topics.h>

#include "quilctl/model/variable_rows.h"
#include "quilctl/screen/terminal_screen.h"
#include "quilctl/talk/bus_connection.h"

namespace ecu::ctl {

/// What a live table of the variables shows: it follows the bus and the keyboard.
class LiveTable {
 public:
  using Clock = BusConnection::Clock;

  /// `patterns` select the variables. With a broker on the same machine (`is_local`) ages are known from the
  /// start.
  LiveTable(std::string broker, bool is_local, std::vector<std::string> patterns);

  /// The topics it needs besides those of the variables and of the daemon's presence.
  static constexpr std::array more_filters = {tamu::com::topics::ignition,
                                              tamu::com::topics::parameter_answer};

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

  void handle_message(const Event& event);
  void handle_filter_key(const KeyPress& press);
  void scroll(std::ptrdiff_t rows);
  void add_line(std::chrono::system_clock::time_point at, const std::string& text);
  [[nodiscard]] ScreenLine heading() const;
  [[nodiscard]] Look look_of(const VariableRow& row) const;
  [[nodiscard]] std::vector<VariableRow> rows() const;
  [[nodiscard]] std::vector<ScreenLine> table_lines(std::size_t width) const;
  [[nodiscard]] std::string key_line(std::size_t count) const;

  const std::string broker_;
  const std::vector<std::string> patterns_;
  VariableView view_;
  UnitClock clock_;
  std::optional<bool> ignition_;
  bool connected_ = false;
  bool settled_ = false;
  std::map<std::string, Clock::time_point, std::less<>> changed_;  // times of the last changes
  std::deque<std::string> notices_;                                // the last few
  Clock::time_point redraw_due_;                                   // at once

  Order order_ = Order::catalogue;
  std::string filter_;  // rows contain it
  bool is_filter_edited_ = false;
  std::size_t top_ = 0;   // the first row that is shown
  std::size_t room_ = 1;  // rows on the screen
};

}  // namespace ecu::ctl
