#pragma once

#include "quilctl/talk/request_session.h"
#include "quilctl/talk/unit_source.h"

namespace ecu::ctl {

/// The variables for a command that asks and ends. Every wait keeps them up to date.
class VariableSession {
 public:
  /// Connects, and returns with everything that the broker retains; see `RequestSession`. `determine_clock`
  /// needs `with_clock`, which needs further access rights on the broker.
  explicit VariableSession(const Options& options, bool with_clock = true,
                           std::chrono::duration<double> default_timeout = std::chrono::seconds(5));

  [[nodiscard]] const VariableView& view() const noexcept { return source_.view(); }
  [[nodiscard]] const UnitClock& clock() const noexcept { return source_.clock(); }
  [[nodiscard]] const VariableSource& source() const noexcept { return source_; }
  RequestSession& session() noexcept { return session_; }

  /// Asks the daemon for the unit's time, unless it is known. Without a reply, ages stay unknown.
  void determine_clock();

  /// Informs the user when the bus holds no variable at all.
  void note_if_nothing_is_published() const;

  /// Whether the daemon is known to be off line, or has never published anything.
  [[nodiscard]] bool is_without_daemon() const;

 private:
  UnitSource source_;
  RequestSession session_;  // last: its construction fills in the source
};

}  // namespace ecu::ctl
