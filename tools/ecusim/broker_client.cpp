#include "ecusim/broker_client.h"

#include <unistd.h>

#include <utility>

#include <ecu/tamu/config/configuration.h>

#include "common/termination.h"
#include "ecusim/connection_report.h"

namespace ecu::sim {

namespace com = tamu::com;

namespace {

// For the signal handler, which runs only while the main thread waits inside the client's `run`.
com::ITransportClient* signalled_client = nullptr;

std::shared_ptr<com::ITransportClient> create(const tools::BrokerOptions& broker) {
  auto config = std::make_unique<tamu::config::Configuration>();
  // The broker closes a connection when another client takes its identifier.
  config->set_value("client_name", "ecusim-" + std::to_string(getpid()));
  config->set_value("presence", "no");
  tools::apply(broker, *config);
  auto report = std::make_shared<ConnectionReport>(tools::broker_address(*config));
  return com::create_client(config, com::TransportType::mqtt, std::move(report));
}

}  // namespace

BrokerClient::BrokerClient(const tools::BrokerOptions& broker) {
  com::library_init();
  client_ = create(broker);
  signalled_client = client_.get();
  tools::stop_on_termination([] { signalled_client->stop(); });
}

BrokerClient::~BrokerClient() {
  client_.reset();
  com::library_cleanup();
}

void BrokerClient::run() {
  client_->run();
}

}  // namespace ecu::sim
