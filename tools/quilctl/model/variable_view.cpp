#include "quilctl/model/variable_view.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/date_time.h>
#include <ecu/tamu/pb/messages.pb.h>

#include "common/variable_catalogue.h"
#include "quilctl/model/decoding.h"

namespace ecu::ctl {

namespace com = tamu::com;

bool says_on_line(const com::Message& presence) {
  return std::ranges::equal(presence.payload, std::string_view(com::topics::presence_online));
}

VariableView::Change VariableView::take(const std::string& topic, const com::Message& msg) {
  if (topic == com::topics::daemon_presence) {
    on_line_ = says_on_line(msg);
    return Change::other;
  }
  const auto name = tools::variable_of(topic);
  if (!name) {
    return Change::other;
  }
  if (msg.payload.empty()) {  // nothing is retained any more
    return update(std::string(*name), std::nullopt);
  }
  const auto decoded = com::PbInternalMessageAdapter<tamu::pb::EcuVariable>().deserialize(msg);
  if (!decoded.ok) {
    variables_[std::string(*name)].is_faulty = true;
    return Change::faulty;
  }
  Variable variable;
  if (decoded.body.has_value()) {
    variable.value = decoded.body.value();
  }
  variable.timestamp = decoded.body.timestamp();
  return update(std::string(*name), variable);
}

VariableView::Change VariableView::update(const std::string& name, const std::optional<Variable>& variable) {
  if (!variable) {
    return variables_.erase(name) > 0 ? Change::changed : Change::none;
  }
  const auto [held, is_new] = variables_.try_emplace(name, *variable);
  const Variable before = std::exchange(held->second, *variable);
  return is_new || before.value != variable->value ? Change::changed : Change::none;
}

const Variable* VariableView::find(std::string_view name) const {
  const auto found = variables_.find(name);
  return found == variables_.end() ? nullptr : &found->second;
}

std::size_t VariableView::with_value() const {
  return static_cast<std::size_t>(std::ranges::count_if(variables_, [](const auto& entry) {
    return entry.second.value && tools::find_variable(entry.first) != nullptr;
  }));
}

void UnitClock::take(const com::Message& msg) {
  if (const auto header = header_of(msg.payload); header && !msg.retained) {
    ahead_ns_ = static_cast<std::int64_t>(header->send_time_ns - msg.timestamp);
  }
}

std::optional<std::uint64_t> UnitClock::age_of(std::uint64_t timestamp) const {
  if (!ahead_ns_) {
    return std::nullopt;
  }
  const std::uint64_t now = tamu::DateTime::time_since_boot_ns() + static_cast<std::uint64_t>(*ahead_ns_);
  constexpr std::uint64_t longest = std::numeric_limits<std::int64_t>::max();  // as a duration
  return now > timestamp ? std::min(now - timestamp, longest) : 0;
}

}  // namespace ecu::ctl
