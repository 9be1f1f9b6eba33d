#include "quilctl/fleet/fleet_view.h"

#include <utility>

#include <ecu/tamu/com/topics.h>

#include "common/fleet_message.h"
#include "common/times.h"

namespace ecu::ctl {

namespace topics = tamu::com::topics;

namespace {

using Kind = VariableView::Change;

// A hostile unit could otherwise fill the memory; more than this the uplink does not send.
constexpr std::size_t max_variables = 256;

Kind take_variable(VariableView& variables, const std::string& name, const std::string& payload) {
  if (payload.empty()) {
    return variables.update(name, std::nullopt);
  }
  auto message = tools::fleet_variable_from_json(payload);
  const Variable* const held = variables.find(name);
  if (!message || (held == nullptr && variables.all().size() >= max_variables)) {
    return Kind::faulty;
  }
  return variables.update(name, Variable{.value = std::move(message->value),
                                         .timestamp = static_cast<std::uint64_t>(message->stamp),
                                         .since = message->since});
}

Kind take_presence(std::string& presence, const std::string& payload) {
  if (!payload.empty() && payload != topics::presence_online && payload != topics::presence_offline &&
      payload != topics::presence_lost) {
    return Kind::faulty;
  }
  return std::exchange(presence, payload) == payload ? Kind::none : Kind::changed;
}

Kind take_daemon(VariableView& variables, const std::string& payload) {
  if (!payload.empty() && payload != topics::presence_online && payload != topics::presence_offline) {
    return Kind::faulty;
  }
  variables.set_daemon_on_line(payload.empty() ? std::nullopt
                                               : std::optional(payload == topics::presence_online));
  return Kind::other;
}

Kind take_time(std::optional<std::chrono::system_clock::time_point>& time, const std::string& payload) {
  const auto read = tools::from_iso_time(payload);
  if (!payload.empty() && !read) {
    return Kind::faulty;
  }
  time = read;
  return Kind::other;
}

}  // namespace

bool FleetView::Unit::is_online() const {
  return presence == topics::presence_online;
}

bool FleetView::Unit::is_known() const {
  return !presence.empty() || connected_since || variables.daemon_on_line() || !variables.all().empty();
}

FleetView::Unit& FleetView::unit(const std::string& name) {
  return units_.try_emplace(name, Unit{{name, prefix_ + '/' + name + '/' + topics::fleet_variable_prefix}})
      .first->second;
}

std::set<std::string> FleetView::topics() const {
  std::set<std::string> all;
  for (const auto& [name, unit] : units_) {
    for (const char* const state :
         {topics::fleet_presence, topics::fleet_daemon, topics::fleet_connected_since}) {
      all.insert(prefix_ + '/' + name + '/' + state);
    }
    for (const auto& [variable, value] : unit.variables.all()) {
      all.insert(unit.unit.variable_prefix + variable);
    }
  }
  return all;
}

FleetView::Change FleetView::take(const std::string& topic, const tamu::com::Message& message) {
  const std::size_t begin = prefix_.size() + 1;
  const std::size_t end = topic.find('/', begin);
  if (!topic.starts_with(prefix_ + '/') || end == std::string::npos) {
    return {};
  }
  const std::string name = topic.substr(begin, end - begin), key = topic.substr(end + 1);
  if (key == topics::fleet_variable_prefix) {
    return {};  // an empty name
  }
  const std::string payload(message.payload.begin(), message.payload.end());
  Unit& unit = this->unit(name);
  Change change{.unit = &unit};
  if (key.starts_with(topics::fleet_variable_prefix)) {
    change.variable = key.substr(std::string_view(topics::fleet_variable_prefix).size());
    change.kind = take_variable(unit.variables, change.variable, payload);
  } else if (key == topics::fleet_presence) {
    change.kind = take_presence(unit.presence, payload);
  } else if (key == topics::fleet_daemon) {
    change.kind = take_daemon(unit.variables, payload);
  } else if (key == topics::fleet_connected_since) {
    change.kind = take_time(unit.connected_since, payload);
  }
  return change;
}

}  // namespace ecu::ctl
