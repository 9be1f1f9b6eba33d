#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "quilctl/model/variable_view.h"
#include "quilctl/screen/alternate_screen.h"
#include "quilctl/talk/bus_connection.h"

namespace ecu::ctl {

/// A table of the variables that is redrawn on a terminal of any size: on the alternate screen after the
/// first connection, and once more on the normal screen at the end.
class LiveTable {
 public:
  using Clock = BusConnection::Clock;

  /// `wanted` selects the variables. With a broker on the same machine (`is_local`) ages are known from the
  /// start. `screen` must outlive the table.
  LiveTable(AlternateScreen& screen, std::string broker, bool is_local,
            std::function<bool(std::string_view)> wanted);
  ~LiveTable();
  LiveTable(const LiveTable&) = delete;
  LiveTable& operator=(const LiveTable&) = delete;

  /// The topics it needs besides those of the variables and of the daemon's presence.
  [[nodiscard]] static const std::vector<std::string>& more_filters();

  void handle(const Event& event);
  /// Adds a line with the time below the table.
  void add_notice(const std::string& text);

  /// The time of the next redraw: shortly after a change, and once a second for the ages; never before the
  /// first connection.
  [[nodiscard]] Clock::time_point redraw_due() const noexcept { return redraw_due_; }
  void draw(std::ostream& out);

 private:
  void handle_message(const Event& event);
  void schedule_redraw();
  void add_line(std::chrono::system_clock::time_point at, const std::string& text);
  [[nodiscard]] std::vector<std::string> lines(std::size_t width, std::size_t height) const;
  [[nodiscard]] std::string heading() const;
  [[nodiscard]] std::vector<std::string> table_lines(std::size_t width) const;

  AlternateScreen& screen_;
  const std::string broker_;
  const std::function<bool(std::string_view)> wanted_;
  VariableView view_;
  UnitClock clock_;
  std::optional<bool> ignition_;
  bool connected_ = false;
  bool settled_ = false;
  std::map<std::string, Clock::time_point, std::less<>> changed_;  // times of the last changes
  std::deque<std::string> notices_;                                // the last few
  Clock::time_point redraw_due_ = Clock::time_point::max();
};

}  // namespace ecu::ctl
