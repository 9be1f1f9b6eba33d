#include "uplink/uplink.h"

#include <algorithm>
#include <chrono>
#include <utility>
#include <vector>

#include <ecu/tamu/com/framing.h>
#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/pb/messages.pb.h>

#include "common/fleet_message.h"
#include "common/name_pattern.h"
#include "common/variable_catalogue.h"

namespace ecu::uplink {

namespace com = tamu::com;
namespace topics = tamu::com::topics;

namespace {

constexpr auto uplink_log = tamu::logging::module("uplink");

constexpr std::size_t longest_value = 4096;

// Of the daemon's presence: a state that returns within the minimum interval is known to the fleet.
constexpr BootTime sent_without_time{};

// From a loss to the subscription that repairs it, which during a flood would be lost, too.
constexpr std::chrono::seconds repair_pause{5};

// What the daemon publishes.
std::set<std::string> reserved_keys() {
  std::set<std::string> keys{topics::fleet_daemon};
  for (const tools::VariableInfo& variable : tools::variables()) {
    keys.insert(topics::fleet_variable_prefix + std::string(variable.name));
  }
  return keys;
}

std::string payload_of(const std::string& key, const ChangeFilter::Value& value,
                       const ChangeFilter::Context& context) {
  if (key == topics::fleet_daemon) {
    return value.text;
  }
  return tools::to_json({value.text,
                         context.booted ? std::optional(*context.booted + value.since) : std::nullopt,
                         value.since.count(), context.daemon});
}

}  // namespace

class Uplink::BusObserver final : public com::ISubscriptionObserver {
 public:
  explicit BusObserver(Uplink& uplink) : uplink_(uplink) {}
  void message(const std::string& topic, const com::Message& msg) override { uplink_.handle(topic, msg); }

 private:
  Uplink& uplink_;
};

class Uplink::BusConnection final : public com::IConnectionObserver {
 public:
  explicit BusConnection(Uplink& uplink) : uplink_(uplink) {}
  void connection_up() override { uplink_.bus_up(); }
  void connection_down(com::ConnectionFailure /*failure*/, const std::string& /*reason*/) override {
    uplink_.bus_down();
  }
  void subscription_refused(const std::string& /*filter*/) override {}
  void subscriptions_settled() override {}
  void messages_dropped(const std::string& /*filter*/, std::uint64_t /*count*/) override {
    uplink_.messages_lost();
  }

 private:
  Uplink& uplink_;
};

Uplink::Uplink(UplinkSettings settings, WallClock wall_clock)
    : settings_(std::move(settings)),
      wall_clock_(std::move(wall_clock)),
      observer_(std::make_shared<BusObserver>(*this)),
      filter_(settings_.limits, reserved_keys()),
      bus_(com::create_client(settings_.bus, com::TransportType::mqtt, std::make_shared<BusConnection>(*this),
                              {.name = "unit"})) {}

Uplink::~Uplink() {
  is_stopping_ = true;
  timer_wake_.signal();
  timer_ = {};  // it uses bus_
}

void Uplink::start() {
  if (!settings_.unit.empty()) {
    const tamu::MutexLock lock(mutex_);
    take_unit(settings_.unit);
  }
  bus_->connect();
  bus_->start();
  timer_ = std::jthread([this] { run_timer(); });
}

void Uplink::run() {
  bus_->run();
}

void Uplink::stop() {
  {
    const tamu::MutexLock lock(mutex_);
    is_stopping_ = true;  // nothing may replace the link, or its "offline", from here on
    if (fleet_) {
      fleet_->stop();
    }
  }
  timer_wake_.signal();
  bus_->stop();
}

void Uplink::handle(const std::string& topic, const com::Message& msg) {
  if (msg.payload.empty()) {
    return;  // the broker retains nothing any more; the last value stays
  }
  const tamu::MutexLock lock(mutex_);
  if (topic == topics::daemon_presence) {
    take_presence({msg.payload.begin(), msg.payload.end()});
  } else {
    take_variable(std::string(tools::variable_of(topic).value_or("")), msg);
  }
  send_and_plan();
}

void Uplink::send_and_plan() {
  send_due();
  if (next_task() < timer_due_) {
    timer_wake_.signal();
  }
}

void Uplink::bus_up() {
  const tamu::MutexLock lock(mutex_);
  bus_is_up_ = true;
}

void Uplink::messages_lost() {
  const tamu::MutexLock lock(mutex_);
  subscribe_due_ = std::min(subscribe_due_, boot_time_now() + repair_pause);
  send_and_plan();
}

// Also called for each attempt to connect that fails.
void Uplink::bus_down() {
  const tamu::MutexLock lock(mutex_);
  bus_is_up_ = false;
  if (std::exchange(daemon_presence_, std::nullopt)) {
    take(topics::fleet_daemon, "", sent_without_time);
    send_and_plan();
  }
}

void Uplink::take_presence(const std::string& state) {
  if (!bus_is_up_) {
    return;  // it arrived before the connection was lost
  }
  if (state == topics::presence_online || state == topics::presence_offline) {
    faults_.set_usable(topics::fleet_daemon);
    daemon_presence_ = state;
    take(topics::fleet_daemon, state, sent_without_time);
  } else if (must_report(topics::fleet_daemon)) {
    uplink_log.warning("the daemon's presence is neither ", topics::presence_online, " nor ",
                       topics::presence_offline);
  }
}

// A variable without a value has none yet, or again, after a restart of the daemon. The last one still holds.
void Uplink::take_variable(const std::string& name, const com::Message& msg) {
  const bool is_selected = tools::matches_any(name, settings_.variables);
  if (!is_selected && name != settings_.unit_variable) {
    return;
  }
  tamu::pb::EcuVariable variable;
  std::uint16_t protocol_type = 0;
  if (com::unframe_quietly(msg.payload, variable, protocol_type) !=
      com::err::PbInternalDeserializationError::success) {
    if (must_report(topics::fleet_variable_prefix + name)) {
      uplink_log.warning("the message about the variable ", name, " cannot be read");
    }
    return;
  }
  if (!variable.has_value()) {
    return;
  }
  const std::string& value = variable.value();
  if (!is_sendable(name, value)) {
    return;
  }
  if (name == settings_.unit_variable) {
    take_unit(value);
  }
  if (is_selected) {
    const auto now = static_cast<std::uint64_t>(boot_time_now().count());
    take(topics::fleet_variable_prefix + name, value, BootTime(std::min(variable.timestamp(), now)));
  }
}

bool Uplink::is_sendable(const std::string& name, const std::string& value) {
  const std::string subject = topics::fleet_variable_prefix + name;
  if (tools::is_fleet_level(name) && value.size() <= longest_value) {
    faults_.set_usable(subject);
    return true;
  }
  if (must_report(subject)) {
    uplink_log.warning(
        "the variable ", name, " of ", value.size(),
        " bytes is not sent: its name is not a level of a topic of at most 64 bytes, or its value exceeds ",
        longest_value, " bytes");
  }
  return false;
}

bool Uplink::must_report(const std::string& subject) {
  return faults_.must_report(subject, boot_time_now());
}

void Uplink::take(const std::string& key, const std::string& text, BootTime published) {
  if (!filter_.take(key, text, published) && !std::exchange(is_full_, true)) {
    uplink_log.warning(key, " and further variables are not sent: there is room for ",
                       settings_.limits.max_keys, ", those of the daemon included");
  }
}

void Uplink::send_due() {
  if (!fleet_) {
    return;
  }
  const ChangeFilter::Context now = context();
  filter_.send_due(boot_time_now(), now,
                   [&](const std::string& key, const ChangeFilter::Value& value) TAMU_REQUIRES(mutex_) {
                     fleet_->publish(fleet_->topic(key), payload_of(key, value, now));
                   });
}

ChangeFilter::Context Uplink::context() const {
  const std::optional<WallTime> now = wall_clock_();
  return {now ? std::optional(*now - boot_time_now()) : std::nullopt, daemon_presence_};
}

}  // namespace ecu::uplink
