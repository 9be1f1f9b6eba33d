// The unit's name, a level of every topic. Another name is another client of the fleet's broker with a
// connection of its own. The two connections are not ordered: what the old one has sent may arrive last.

#include <utility>

#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/logging/logging.h>

#include "common/fleet_message.h"
#include "uplink/uplink.h"

namespace ecu::uplink {

namespace topics = tamu::com::topics;

namespace {

constexpr auto uplink_log = tamu::logging::module("uplink");

// From a change of the name to the time at which no message of the old connection arrives any more, in
// keep-alive times: a broker ends a connection that has been silent for 1.5 of them (MQTT 3.1.1, 3.1.2.10),
// and a message that was delayed for as long begins that time again.
constexpr int late_messages = 3;

}  // namespace

void Uplink::take_unit(const std::string& unit) {
  if (!tools::is_fleet_level(unit)) {
    if (must_report("unit")) {
      uplink_log.warning("'", unit,
                         "' cannot be the unit's name: it is not a level of a topic of at most 64 bytes");
    }
    return;
  }
  faults_.set_usable("unit");
  next_unit_ = unit;
  set_unit_if_due();
}

// A name is limited like a value, because another one costs a connection and all topics.
void Uplink::set_unit_if_due() {
  if (is_stopping_ || next_unit_.empty() || boot_time_now() < next_unit_due_) {
    return;
  }
  if (!fleet_ || fleet_->unit() != next_unit_) {
    set_unit(next_unit_);
    next_unit_due_ = boot_time_now() + settings_.limits.min_interval;
  }
  next_unit_.clear();  // last: after a failure it is set again
}

// The old name's topics are cleared by the new link, because the old one ends with "offline", and may be
// without a connection.
void Uplink::set_unit(const std::string& unit) {
  if (fleet_) {
    uplink_log.notice("the unit's name changes from ", fleet_->unit(), " to ", unit);
    leave_name();
  }
  fleet_ =
      std::make_unique<FleetLink>(settings_, unit, wall_clock_, old_topics_, [this] { handle_connection(); });
  if (!daemon_presence_) {
    fleet_->publish(fleet_->topic(topics::fleet_daemon), "");  // of an earlier run, perhaps
  }
  filter_.send_all_again();
}

void Uplink::leave_name() {
  const FleetLink& old = *fleet_;
  old_topics_->hold();
  repair_due_ = boot_time_now() + late_messages * settings_.keepalive;
  bool all_added = old_topics_->add(old.topic(topics::fleet_presence)) &&
                   old_topics_->add(old.topic(topics::fleet_connected_since));
  filter_.for_each_sent(
      [&](const std::string& key) { all_added = old_topics_->add(old.topic(key)) && all_added; });
  if (all_added) {
    faults_.set_usable("topics");
  } else if (must_report("topics")) {
    uplink_log.warning("topics of ", old.unit(), " stay at the fleet's broker: more than ",
                       OldTopics::max_topics, " of former names wait to be cleared");
  }
  fleet_.reset();
}

// What the connection of the former name had sent has reached the broker, and its last will, too.
void Uplink::repair_names() {
  if (!fleet_ || boot_time_now() < repair_due_) {
    return;
  }
  repair_due_ = BootTime::max();
  old_topics_->release();
  fleet_->repair();
  filter_.send_all_again();
}

}  // namespace ecu::uplink
