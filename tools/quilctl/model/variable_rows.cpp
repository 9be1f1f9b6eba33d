#include "quilctl/model/variable_rows.h"

#include "quilctl/base/escaping.h"
#include "quilctl/model/times.h"

namespace ecu::ctl {

namespace {

constexpr double ns_per_s = 1e9;

// In nanoseconds; nothing without a value.
std::optional<std::uint64_t> age_of(const VariableRow& row, const UnitClock& clock) {
  return row.value() ? clock.age_of(row.variable->timestamp) : std::nullopt;
}

}  // namespace

std::vector<VariableRow> variable_rows(const VariableView& view) {
  std::vector<VariableRow> rows;
  for (const VariableInfo& info : variables()) {
    rows.push_back({std::string(info.name), view.find(info.name), &info});
  }
  for (const auto& [name, variable] : view.all()) {
    if (find_variable(name) == nullptr) {
      rows.push_back({name, &variable, nullptr});
    }
  }
  return rows;
}

const std::vector<std::string>& variable_headings() {
  static const std::vector<std::string> headings = {"NAME", "VALUE", "AGE", "SOURCE"};
  return headings;
}

std::vector<std::string> columns_of(const VariableRow& row, const UnitClock& clock) {
  const auto age = age_of(row, clock);
  return {printable(row.name), shown_value(row.value()), age ? age_text(std::chrono::nanoseconds(*age)) : "-",
          row.info == nullptr ? "-" : row.info->sources_text()};
}

Json json_of(const VariableRow& row, const UnitClock& clock) {
  const auto age = age_of(row, clock);
  Json object{{"name", row.name}, {"value", json_value(row.value())}};
  object["published"] = row.variable != nullptr;
  object["timestamp_ns"] = row.value() ? Json(row.variable->timestamp) : Json(nullptr);
  object["age_s"] = age ? Json(static_cast<double>(*age) / ns_per_s) : Json(nullptr);
  object["source"] = row.info == nullptr ? Json(nullptr) : Json(row.info->sources());
  return object;
}

}  // namespace ecu::ctl
