#include "uplink/fleet_link.h"

#include <utility>

#include <ecu/tamu/com/topics.h>

namespace ecu::uplink {

namespace com = tamu::com;

namespace {

std::shared_ptr<com::ITransportClient> create_client(const UplinkSettings& settings, const std::string& unit,
                                                     const std::string& tree) {
  auto config = std::make_unique<tamu::config::Configuration>(*settings.fleet);
  if (config->get("client_name").empty()) {
    config->set_value("client_name", unit);
  }
  com::ClientTraits traits;
  traits.presence = {tree + presence_key, com::topics::presence_online, com::topics::presence_offline,
                     "lost"};
  traits.reconnect_spread = settings.reconnect_spread;
  traits.name = "fleet";
  return com::create_client(config, com::TransportType::mqtt, nullptr, traits);
}

}  // namespace

FleetLink::FleetLink(const UplinkSettings& settings, const std::string& unit)
    : unit_(unit), tree_(settings.prefix + '/' + unit + '/'), client_(create_client(settings, unit, tree_)) {
  client_->connect();
  client_->start();
}

void FleetLink::publish(const std::string& topic, const std::string& payload) {
  com::Message message = com::make_message(0, {payload.begin(), payload.end()});
  message.acknowledged = true;
  message.retained = true;
  (void)client_->publish(topic, std::move(message));  // remembered without a connection, too
}

}  // namespace ecu::uplink
