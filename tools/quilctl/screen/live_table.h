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

/// Everything that is known of the unit, drawn again and again on a terminal of any size: on its second
/// screen from the first connection on, and at the end once more on the first one.
class LiveTable {
 public:
  using Clock = Bus::Clock;

  /// `wanted` chooses the variables. On the unit's own machine (`is_local`) ages are known from the start.
  /// `screen` must outlive it.
  LiveTable(SecondScreen& screen, std::string broker, bool is_local,
            std::function<bool(std::string_view)> wanted);
  ~LiveTable();
  LiveTable(const LiveTable&) = delete;
  LiveTable& operator=(const LiveTable&) = delete;

  /// What it wants to hear beside the variables.
  [[nodiscard]] static const std::vector<std::string>& more_filters();

  void take(const Event& event);
  /// Shows it with the time: what has happened beside the variables.
  void take_news(const std::string& text);

  /// When it wants to be drawn: soon after a change, and once a second for the ages; not before the first
  /// connection.
  [[nodiscard]] Clock::time_point redraw_due() const noexcept { return redraw_due_; }
  void draw(std::ostream& out);

 private:
  void take_message(const Event& event);
  void draw_soon();
  void add_news(std::chrono::system_clock::time_point at, const std::string& text);
  [[nodiscard]] std::vector<std::string> lines(std::size_t width, std::size_t height) const;
  [[nodiscard]] std::string heading() const;
  [[nodiscard]] std::vector<std::string> table_lines(std::size_t width) const;

  SecondScreen& screen_;
  const std::string broker_;
  const std::function<bool(std::string_view)> wanted_;
  VariableView view_;
  UnitClock clock_;
  std::optional<bool> ignition_;
  bool connected_ = false;
  bool settled_ = false;
  std::map<std::string, Clock::time_point, std::less<>> changed_;  // when variables changed last
  std::deque<std::string> news_;                                   // the last few
  Clock::time_point redraw_due_ = Clock::time_point::max();
};

}  // namespace ecu::ctl
