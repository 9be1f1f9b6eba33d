#include "quilctl/fleet/fleet_source.h"

#include <algorithm>

#include <ecu/tamu/com/topics.h>

#include "common/fleet_message.h"
#include "common/name_pattern.h"
#include "common/notes.h"
#include "common/times.h"
#include "quilctl/base/failure.h"

namespace ecu::ctl {

namespace topics = tamu::com::topics;

void require_topic_level(const std::string& text) {
  if (!tools::is_fleet_level(text)) {
    throw Failure(ExitCode::usage, '\'' + text + "' " + tools::not_fleet_level);
  }
}

RequestSession::Handler handler_of(FleetSource& source) {
  return [&source](const Event& message) { tools::note(source.take(message).notice); };
}

FleetSource::FleetSource(const Options& options)
    : pattern_(options.fleet.value_or("").empty() ? "*" : *options.fleet),
      prefix_(options.fleet_prefix),
      names_(options.arguments),
      view_(options.fleet_prefix) {
  require_topic_level(pattern_);
  require_topic_level(prefix_);
  if (is_one_unit()) {
    (void)view_.unit(pattern_);
  }
}

bool FleetSource::is_one_unit() const {
  return !tools::is_pattern(pattern_);
}

std::string FleetSource::filter(const std::string& end) const {
  return prefix_ + '/' + (is_one_unit() ? pattern_ : "+") + '/' + end;
}

std::vector<std::string> FleetSource::state_filters() const {
  return {filter(topics::fleet_presence), filter(topics::fleet_daemon),
          filter(topics::fleet_connected_since)};
}

// A single variable of each of thousands of units is worth a filter of its own.
std::vector<std::string> FleetSource::filters(bool for_table) const {
  std::vector<std::string> filters = {filter(topics::fleet_presence)};
  if (for_table) {
    filters.push_back(filter(topics::fleet_daemon));
  }
  const auto is_exact = [](const std::string& name) {
    return tools::is_fleet_level(name) && !tools::is_pattern(name);
  };
  if (names_.empty() || !std::ranges::all_of(names_, is_exact)) {
    filters.push_back(filter(std::string(topics::fleet_variable_prefix) + '+'));
    return filters;
  }
  for (const std::string& name : names_) {
    filters.push_back(filter(topics::fleet_variable_prefix + name));
  }
  return filters;
}

VariableSource::Update FleetSource::take(const Event& event) {
  if (event.kind == Event::Kind::up) {
    unconfirmed_ = view_.topics();
  }
  settled_ = event.kind == Event::Kind::settled || (settled_ && event.kind == Event::Kind::message);
  return event.kind == Event::Kind::message ? take_message(event) : Update();
}

// What the broker retained before the connection was lost, but retains no longer, was cleared meanwhile.
std::optional<Event> FleetSource::next_missed() {
  if (!settled_ || unconfirmed_.empty()) {
    return std::nullopt;
  }
  return Event{.text = *unconfirmed_.begin(), .message = {}, .at = tools::wall_clock_now()};
}

VariableSource::Update FleetSource::take_message(const Event& message) {
  unconfirmed_.erase(message.text);
  const auto [kind, unit, variable] = view_.take(message.text, message.message);
  if (kind == VariableView::Change::faulty) {
    return {.notice = "cannot read the message on " + message.text};
  }
  if (kind != VariableView::Change::changed || !tools::matches_pattern(unit->unit.name, pattern_)) {
    return {};
  }
  if (variable.empty()) {
    return {.notice = message.message.retained
                          ? ""
                          : unit->unit.name + " is " + (unit->presence.empty() ? "retired" : unit->presence)};
  }
  if (!tools::matches_any(variable, names_)) {
    return {};
  }
  return {.changed = VariableRow{variable, unit->variables.find(variable), tools::find_variable(variable),
                                 &unit->unit}};
}

std::vector<const FleetView::Unit*> FleetSource::units() const {
  std::vector<const FleetView::Unit*> units;
  for (const auto& [name, unit] : view_.units()) {
    if (tools::matches_pattern(name, pattern_) && (unit.is_known() || is_one_unit())) {
      units.push_back(&unit);
    }
  }
  return units;
}

std::vector<VariableRow> FleetSource::rows(bool with_missing) const {
  std::vector<VariableRow> all;
  for (const FleetView::Unit* const unit : units()) {
    for (VariableRow& row : variable_rows(unit->variables, names_)) {
      if (row.variable != nullptr || with_missing) {
        row.unit = &unit->unit;
        all.push_back(std::move(row));
      }
    }
  }
  return all;
}

void FleetSource::require_units(ExitCode code) const {
  if (std::ranges::none_of(units(), &FleetView::Unit::is_known)) {
    throw Failure(code, (pattern_ == "*" ? "no unit is known" : "no unit is named '" + pattern_ + '\'') +
                            ": nothing is published, or the broker's access rules deny access");
  }
}

bool FleetSource::is_any_online() const {
  return std::ranges::any_of(units(), &FleetView::Unit::is_online);
}

void FleetSource::require_known() const {
  require_units();
  std::vector<VariableRow> known = variable_rows({});
  for (const auto& [name, unit] : view_.units()) {
    for (const auto& [variable, value] : unit.variables.all()) {
      known.push_back({variable});
    }
  }
  ctl::require_known(known, names_);
}

VariableSource::Summary FleetSource::summary() const {
  const auto all = units();
  const auto online = std::ranges::count_if(all, &FleetView::Unit::is_online);
  return {std::to_string(online) + " of " + std::to_string(all.size()) + " units online"};
}

bool FleetSource::is_stale(const VariableRow& row) const {
  const auto unit = view_.units().find(row.unit_name());
  return unit == view_.units().end() || !unit->second.is_online() ||
         unit->second.variables.daemon_on_line() == false;
}

}  // namespace ecu::ctl
