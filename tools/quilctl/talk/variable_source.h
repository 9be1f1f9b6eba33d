#pragma once

#include <optional>
#include <string>
#include <vector>

#include "quilctl/model/variable_rows.h"
#include "quilctl/talk/bus_event.h"

namespace ecu::ctl {

/// The variables that a command shows while they change: those of a unit, or of a fleet.
class VariableSource {
 public:
  /// What a message means to the user.
  struct Update {
    std::optional<VariableRow> changed{};  // a variable that has another value, or none any more
    std::string notice{};                  // may be empty
  };

  /// What the heading of a table says.
  struct Summary {
    std::string text;
    bool is_alarming = false;
  };

  virtual ~VariableSource() = default;

  /// For a broker on the same machine: ages are known from the start.
  virtual void use_local_clock() noexcept {}
  /// The topics to subscribe to; more for a live table.
  [[nodiscard]] virtual std::vector<std::string> filters(bool for_table) const = 0;
  /// Takes an event; messages are of these topics.
  virtual Update take(const Event& event) = 0;
  /// A message to take before the next event of the bus: one that was missed.
  [[nodiscard]] virtual std::optional<Event> next_missed() { return std::nullopt; }

  /// The chosen variables. They refer to the source until its next message.
  [[nodiscard]] virtual std::vector<VariableRow> rows() const = 0;
  /// Throws `Failure` when a pattern of the user matches nothing.
  virtual void require_known() const = 0;
  [[nodiscard]] virtual bool is_of_fleet() const noexcept = 0;

  [[nodiscard]] virtual Summary summary() const = 0;
  /// Whether nobody keeps the variable up to date.
  [[nodiscard]] virtual bool is_stale(const VariableRow& row) const = 0;
  /// The clock of a unit's time stamps.
  [[nodiscard]] virtual const UnitClock& clock() const noexcept = 0;
};

}  // namespace ecu::ctl
