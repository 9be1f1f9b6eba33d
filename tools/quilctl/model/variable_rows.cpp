#include "quilctl/model/variable_rows.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <set>

#include "common/escaping.h"
#include "common/name_pattern.h"
#include "common/nearest_word.h"
#include "common/times.h"
#include "quilctl/base/failure.h"

namespace ecu::ctl {

std::int64_t VariableRow::set_at() const {
  constexpr std::int64_t unknown = std::numeric_limits<std::int64_t>::min();
  if (!value() || (unit != nullptr && !variable->since)) {
    return unknown;
  }
  return unit == nullptr ? static_cast<std::int64_t>(variable->timestamp)
                         : std::chrono::nanoseconds(variable->since->time_since_epoch()).count();
}

std::optional<std::chrono::nanoseconds> VariableRow::age(const UnitClock& clock) const {
  if (unit != nullptr) {
    return value() && variable->since ? std::optional(std::max(tools::wall_clock_now() - *variable->since,
                                                               std::chrono::nanoseconds::zero()))
                                      : std::nullopt;
  }
  const auto age = value() ? clock.age_of(variable->timestamp) : std::nullopt;
  return age ? std::optional(std::chrono::nanoseconds(*age)) : std::nullopt;
}

std::vector<VariableRow> variable_rows(const VariableView& view, const std::vector<std::string>& patterns) {
  std::vector<VariableRow> rows;
  for (const tools::VariableInfo& info : tools::variables()) {
    rows.push_back({std::string(info.name), view.find(info.name), &info});
  }
  for (const auto& [name, variable] : view.all()) {
    if (tools::find_variable(name) == nullptr) {
      rows.push_back({name, &variable, nullptr});
    }
  }
  if (patterns.empty()) {
    return rows;
  }
  std::vector<VariableRow> chosen;
  for (const std::string& pattern : patterns) {
    const auto is_other = [&](const VariableRow& row) { return !tools::matches_pattern(row.name, pattern); };
    const auto matching = std::stable_partition(rows.begin(), rows.end(), is_other);
    std::move(matching, rows.end(), std::back_inserter(chosen));
    rows.erase(matching, rows.end());
  }
  return chosen;
}

void require_known(const std::vector<VariableRow>& rows, const std::vector<std::string>& patterns) {
  std::set<std::string> names;
  for (const VariableRow& row : rows) {
    names.insert(row.name);
  }
  for (const std::string& pattern : patterns) {
    if (std::ranges::none_of(
            names, [&](const std::string& name) { return tools::matches_pattern(name, pattern); })) {
      const std::string hint = tools::did_you_mean(pattern, names);
      throw Failure(ExitCode::unknown,
                    (tools::is_pattern(pattern) ? "no variable matches '" : "no variable is named '") +
                        pattern + '\'' + (hint.empty() ? "; quilctl describe lists them" : hint));
    }
  }
}

std::string line_of(const VariableRow& row, bool raw) {
  const auto value = row.value();
  return (row.unit == nullptr ? "" : tools::printable(row.unit->name) + "  ") + tools::printable(row.name) +
         "  " + (raw && value ? *value : shown_value(value));
}

Json json_of(const VariableRow& row, const UnitClock& clock) {
  const auto age = row.age(clock);
  Json object;
  if (row.unit != nullptr) {
    object["unit"] = json_value(row.unit->name);
  }
  object["name"] = json_value(row.name);
  object["value"] = json_value(row.value());
  object["published"] = row.variable != nullptr;
  object["timestamp_ns"] = row.value() ? Json(row.variable->timestamp) : Json(nullptr);
  object["age_s"] = age ? Json(std::chrono::duration<double>(*age).count()) : Json(nullptr);
  if (row.unit != nullptr) {
    object["since"] =
        row.value() && row.variable->since ? Json(tools::iso_time(*row.variable->since)) : Json(nullptr);
  }
  object["source"] = row.info == nullptr ? Json(nullptr) : Json(row.info->sources());
  return object;
}

}  // namespace ecu::ctl
