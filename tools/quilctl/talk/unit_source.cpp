#include "quilctl/talk/unit_source.h"

#include <utility>

#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/rt/signal_adapter.h>

#include "common/name_pattern.h"
#include "quilctl/model/decoding.h"

namespace ecu::ctl {

namespace topics = tamu::com::topics;

namespace {

constexpr const char* ignition_signal = "kl15";

// On when the first byte is not zero; nothing without a valid signal.
std::optional<bool> ignition_in(const Event& message) {
  const auto group = tamu::rt::SignalAdapter::instance().unpack(message.text, message.message);
  if (!group) {
    return std::nullopt;
  }
  const tamu::rt::Signal* const signal = (*group)->signal(ignition_signal);
  if (signal == nullptr || signal->status() != tamu::rt::signal_valid || signal->data().empty()) {
    return std::nullopt;
  }
  return signal->data().front() != 0;
}

}  // namespace

std::vector<std::string> UnitSource::filters(bool for_table) const {
  std::vector<std::string> filters = {topics::all_variables_filter, topics::daemon_presence};
  if (for_table) {
    filters.insert(filters.end(), {topics::ignition, topics::parameter_answer});
  }
  return filters;
}

VariableSource::Update UnitSource::take(const Event& message) {
  if (message.kind != Event::Kind::message) {
    return {};
  }
  if (message.text == topics::ignition) {
    return take_ignition(message);
  }
  const auto change = view_.take(message.text, message.message);
  if (change == VariableView::Change::faulty) {
    return {.notice = not_decodable(message.text)};
  }
  if (message.text != topics::daemon_presence) {
    clock_.take(message.message);
  }
  const auto name = tools::variable_of(message.text);
  if (change != VariableView::Change::changed || !tools::matches_any(*name, patterns_)) {
    return {};
  }
  return {.changed = VariableRow{std::string(*name), view_.find(*name), tools::find_variable(*name)}};
}

VariableSource::Update UnitSource::take_ignition(const Event& message) {
  const auto now = ignition_in(message);
  const bool has_changed = now && std::exchange(ignition_, now) != now;
  return {.notice = !has_changed ? "" : *now ? "ignition on" : "ignition off"};
}

VariableSource::Summary UnitSource::summary() const {
  const auto presence = view_.daemon_on_line();
  std::string text = "daemon ";
  text += presence == true ? "on line" : presence == false ? "OFF LINE" : "unknown";
  if (ignition_) {
    text += std::string("  ignition ") + (*ignition_ ? "on" : "off");
  }
  text += "  " + std::to_string(view_.with_value()) + " of " + std::to_string(tools::variables().size()) +
          " values";
  return {text, presence == false};
}

}  // namespace ecu::ctl
