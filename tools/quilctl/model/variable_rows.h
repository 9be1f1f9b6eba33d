#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/variable_catalogue.h"
#include "quilctl/model/values.h"
#include "quilctl/model/variable_view.h"

namespace ecu::ctl {

/// A unit of a fleet.
struct FleetUnit {
  std::string name;
  std::string variable_prefix;  // of the topics of its variables
};

/// A variable that is in the catalogue or has been published.
struct VariableRow {
  std::string name;
  const Variable* variable = nullptr;         // null: not published
  const tools::VariableInfo* info = nullptr;  // null: not in the catalogue
  const FleetUnit* unit = nullptr;            // null: of the unit whose bus this is

  [[nodiscard]] std::string unit_name() const { return unit == nullptr ? "" : unit->name; }
  [[nodiscard]] std::string topic() const {
    return unit == nullptr ? tools::topic_of_variable(name) : unit->variable_prefix + name;
  }
  [[nodiscard]] std::optional<std::string> value() const {
    return variable == nullptr ? std::nullopt : variable->value;
  }
  /// The time of the value as a number that grows; the least one without a value or a time.
  [[nodiscard]] std::int64_t set_at() const;
  /// The age of the value; nothing without a value or a clock.
  [[nodiscard]] std::optional<std::chrono::nanoseconds> age(const UnitClock& clock) const;
};

/// The variables whose names match the patterns, in the order of the patterns, or all: first those of the
/// catalogue. Refers to the view, which must outlive the rows.
[[nodiscard]] std::vector<VariableRow> variable_rows(const VariableView& view,
                                                     const std::vector<std::string>& patterns = {});

/// Throws `Failure` when a pattern matches no row's variable; the text names the nearest variable.
void require_known(const std::vector<VariableRow>& rows, const std::vector<std::string>& patterns);

/// A row as a line of text: the unit in a fleet, the name, and the value, escaped unless `raw`.
[[nodiscard]] std::string line_of(const VariableRow& row, bool raw = false);

/// A row as JSON.
[[nodiscard]] Json json_of(const VariableRow& row, const UnitClock& clock);

}  // namespace ecu::ctl
