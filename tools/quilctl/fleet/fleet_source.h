#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "quilctl/base/options.h"
#include "quilctl/fleet/fleet_view.h"
#include "quilctl/talk/request_session.h"
#include "quilctl/talk/variable_source.h"

namespace ecu::ctl {

/// The variables of the units that --fleet chooses, at the fleet's broker.
class FleetSource final : public VariableSource {
 public:
  /// Throws `Failure` when the unit's name or the prefix is not a level of a topic.
  explicit FleetSource(const Options& options);

  [[nodiscard]] std::vector<std::string> filters(bool for_table) const override;
  /// Of the states of the units: presence, the daemon's presence, and the time of the connection.
  [[nodiscard]] std::vector<std::string> state_filters() const;
  Update take(const Event& event) override;
  [[nodiscard]] std::optional<Event> next_missed() override;
  [[nodiscard]] std::vector<VariableRow> rows() const override { return rows(false); }
  /// The chosen variables; `with_missing` adds those of the catalogue that a unit has not published.
  [[nodiscard]] std::vector<VariableRow> rows(bool with_missing) const;
  void require_known() const override;
  [[nodiscard]] bool is_of_fleet() const noexcept override { return true; }
  [[nodiscard]] Summary summary() const override;
  [[nodiscard]] bool is_stale(const VariableRow& row) const override;
  [[nodiscard]] const UnitClock& clock() const noexcept override { return clock_; }

  /// The chosen units.
  [[nodiscard]] std::vector<const FleetView::Unit*> units() const;
  /// Throws `Failure` when --fleet chooses no unit.
  void require_units(ExitCode code = ExitCode::unknown) const;
  /// Whether one of the chosen units is online.
  [[nodiscard]] bool is_any_online() const;
  /// Whether --fleet names one unit.
  [[nodiscard]] bool is_one_unit() const;

 private:
  [[nodiscard]] std::string filter(const std::string& end) const;
  [[nodiscard]] Update take_message(const Event& message);

  const std::string pattern_;  // of the units
  const std::string prefix_;
  const std::vector<std::string> names_;
  FleetView view_;
  std::set<std::string> unconfirmed_;  // topics that the present connection has not brought
  bool settled_ = false;               // it has brought everything
  const UnitClock clock_;              // never known: ages are by the wall clock
};

/// Passes each message to the source, and notes those that cannot be read.
[[nodiscard]] RequestSession::Handler handler_of(FleetSource& source);

/// Checks that a text is one level of a topic; throws `Failure` otherwise.
void require_topic_level(const std::string& text);

}  // namespace ecu::ctl
