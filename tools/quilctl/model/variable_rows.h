#pragma once

#include <string>
#include <vector>

#include "quilctl/model/values.h"
#include "quilctl/model/variable_catalogue.h"
#include "quilctl/model/variable_view.h"

namespace ecu::ctl {

/// A variable that is in the catalogue or has been published.
struct VariableRow {
  std::string name;
  const Variable* variable = nullptr;  // null: not published
  const VariableInfo* info = nullptr;  // null: not in the catalogue

  [[nodiscard]] std::optional<std::string> value() const {
    return variable == nullptr ? std::nullopt : variable->value;
  }
};

/// All variables: first those of the catalogue, in its order. Refers to the view, which must outlive the
/// rows.
[[nodiscard]] std::vector<VariableRow> variable_rows(const VariableView& view);

/// The columns name, value, age and source.
[[nodiscard]] std::vector<std::string> columns_of(const VariableRow& row, const UnitClock& clock);
[[nodiscard]] const std::vector<std::string>& variable_headings();

/// A row as JSON.
[[nodiscard]] Json json_of(const VariableRow& row, const UnitClock& clock);

}  // namespace ecu::ctl
