#pragma once

#include "quilctl/model/variable_view.h"
#include "quilctl/talk/request_session.h"

namespace ecu::ctl {

/// The variables for a command that asks and ends. Every wait keeps them up to date.
class VariableSession {
 public:
  /// Connects, and returns with everything that the broker retains; see `RequestSession`. `determine_clock`
  /// needs `with_clock`, which needs further access rights on the broker.
  explicit VariableSession(const Options& options, bool with_clock = true,
                           std::chrono::duration<double> default_timeout = std::chrono::seconds(5));

  [[nodiscard]] const VariableView& view() const noexcept { return view_; }
  [[nodiscard]] const UnitClock& clock() const noexcept { return clock_; }
  RequestSession& session() noexcept { return session_; }

  /// Asks the daemon for the unit's time, unless it is known. Without a reply, ages stay unknown.
  void determine_clock();

  /// Informs the user when the bus holds no variable at all.
  void note_if_nothing_is_published() const;

  /// Whether the daemon is known to be off line, or has never published anything.
  [[nodiscard]] bool is_without_daemon() const;

 private:
  VariableView view_;
  UnitClock clock_;
  RequestSession session_;  // last: its construction fills in the view
};

}  // namespace ecu::ctl
