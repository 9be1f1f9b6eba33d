#pragma once

#include <string>
#include <vector>

#include "common/variable_catalogue.h"
#include "quilctl/model/values.h"
#include "quilctl/model/variable_view.h"

namespace ecu::ctl {

/// A variable that is in the catalogue or has been published.
struct VariableRow {
  std::string name;
  const Variable* variable = nullptr;         // null: not published
  const tools::VariableInfo* info = nullptr;  // null: not in the catalogue

  [[nodiscard]] std::optional<std::string> value() const {
    return variable == nullptr ? std::nullopt : variable->value;
  }
  /// The age of the value; nothing without a value or a clock.
  [[nodiscard]] std::optional<std::chrono::nanoseconds> age(const UnitClock& clock) const;
};

/// The variables whose names match the patterns, in the order of the patterns, or all: first those of the
/// catalogue. Refers to the view, which must outlive the rows.
[[nodiscard]] std::vector<VariableRow> variable_rows(const VariableView& view,
                                                     const std::vector<std::string>& patterns = {});

/// Throws `Failure` when a pattern matches no variable; the text names the nearest variable.
void require_known(const VariableView& view, const std::vector<std::string>& patterns);

/// The columns name, value, age and source. When space is short, the essential ones remain.
[[nodiscard]] std::vector<std::string> columns_of(const VariableRow& row, const UnitClock& clock);
[[nodiscard]] const std::vector<std::string>& variable_headings();
inline constexpr std::size_t essential_variable_columns = 2;

/// A row as JSON.
[[nodiscard]] Json json_of(const VariableRow& row, const UnitClock& clock);

}  // namespace ecu::ctl
