#include <mosquittopp.h>

#include <stdexcept>
#include <utility>

#include <ecu/tamu/com/transport_client.h>

#include "mqtt/mqtt_client.h"

namespace ecu::tamu::com {

std::shared_ptr<ITransportClient> create_client(const std::unique_ptr<config::Configuration>& config,
                                                TransportType type,
                                                std::shared_ptr<IConnectionObserver> observer,
                                                const ClientTraits& traits) {
  if (type != TransportType::mqtt) {
    throw std::invalid_argument("unknown transport type");
  }
  return std::make_shared<mqtt::MqttClient>(mqtt::read_settings(*config, traits), std::move(observer));
}

void library_init() {
  mosqpp::lib_init();
}

void library_cleanup() {
  mosqpp::lib_cleanup();
}

}  // namespace ecu::tamu::com
