#include "uplink/fleet_link.h"

#include <utility>

#include <ecu/tamu/com/topics.h>

#include "common/times.h"

namespace ecu::uplink {

namespace com = tamu::com;
namespace topics = com::topics;

namespace {

std::shared_ptr<com::ITransportClient> create_client(const UplinkSettings& settings, const std::string& unit,
                                                     const std::string& tree,
                                                     std::shared_ptr<com::IConnectionObserver> observer,
                                                     const std::shared_ptr<OldTopics>& old_topics) {
  auto config = std::make_unique<tamu::config::Configuration>(*settings.fleet);
  if (config->get("client_name").empty()) {
    config->set_value("client_name", unit);
  }
  com::ClientTraits traits;
  traits.presence = {tree + topics::fleet_presence, topics::presence_online, topics::presence_offline,
                     topics::presence_lost};
  traits.reconnect_spread = settings.reconnect_spread;
  traits.repeat_after = settings.repeat_after;
  traits.topic_cleared = [old_topics](const std::string& topic) { old_topics->remove(topic); };
  traits.name = "fleet";
  return com::create_client(config, com::TransportType::mqtt, std::move(observer), traits);
}

}  // namespace

class FleetLink::ConnectionObserver final : public com::IConnectionObserver {
 public:
  explicit ConnectionObserver(FleetLink& link) : link_(link) {}

  void connection_up() override { link_.connection_up(); }
  void connection_down(com::ConnectionFailure /*failure*/, const std::string& /*reason*/) override {}
  void subscription_refused(const std::string& /*filter*/) override {}
  void subscriptions_settled() override {}
  void messages_dropped(const std::string& /*filter*/, std::uint64_t /*count*/) override {}

 private:
  FleetLink& link_;
};

FleetLink::FleetLink(const UplinkSettings& settings, const std::string& unit, WallClock wall_clock,
                     const std::shared_ptr<OldTopics>& old_topics, std::function<void()> connected)
    : unit_(unit),
      tree_(settings.prefix + '/' + unit + '/'),
      wall_clock_(std::move(wall_clock)),
      connected_(std::move(connected)),
      old_topics_(old_topics),
      client_(create_client(settings, unit, tree_, std::make_shared<ConnectionObserver>(*this), old_topics)) {
  old_topics_->remove_tree(tree_);
  clear_old_topics();
  client_->connect();
  client_->start();
}

void FleetLink::publish(const std::string& topic, const std::string& payload) {
  com::Message message = com::make_message(0, {payload.begin(), payload.end()});
  message.acknowledged = true;
  message.retained = true;
  (void)client_->publish(topic, std::move(message));  // remembered without a connection, too
}

void FleetLink::clear_old_topics() {
  for (const std::string& topic : old_topics_->all()) {
    publish(topic, "");
  }
}

// From here on the presence is sent twice on each connection, once by the transport.
void FleetLink::repair() {
  clear_old_topics();
  const tamu::MutexLock lock(mutex_);
  if (connected_at_ != BootTime::zero()) {
    publish(topic(topics::fleet_presence), topics::presence_online);
    publish_connection_time();
  }
}

void FleetLink::connection_up() {
  {
    const tamu::MutexLock lock(mutex_);
    connected_at_ = boot_time_now();
    publish_connection_time();
  }
  connected_();
}

void FleetLink::complete_connection_time() {
  const tamu::MutexLock lock(mutex_);
  if (is_time_missing_) {
    publish_connection_time();
  }
}

void FleetLink::publish_connection_time() {
  const auto now = wall_clock_();
  is_time_missing_ = !now;
  publish(topic(topics::fleet_connected_since),
          now ? tools::iso_time(*now - (boot_time_now() - connected_at_)) : std::string());
}

}  // namespace ecu::uplink
