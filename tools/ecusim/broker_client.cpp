#include "ecusim/broker_client.h"

#include <unistd.h>

#include <csignal>

#include <ecu/tamu/config/configuration.h>
#include <ecu/tamu/signal_mask.h>

namespace ecu::sim {

namespace com = tamu::com;

namespace {

// For the signal handler, which runs only while the main thread waits inside the client's `run`.
com::ITransportClient* signalled_client = nullptr;

void set_handler(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  action.sa_mask = tamu::termination_signals();
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

void on_signal(int /*signal_number*/) {
  signalled_client->stop();
  set_handler(SIG_DFL);
}

void install_signal_handler() {
  tamu::block_signals(tamu::termination_signals());
  set_handler(on_signal);
}

std::shared_ptr<com::ITransportClient> create(const BrokerAddress& broker, const std::string& role) {
  auto config = std::make_unique<tamu::config::Configuration>();
  // The broker closes a connection when another client takes its identifier.
  config->set_value("client_name", "ecusim-" + role + "-" + std::to_string(getpid()));
  config->set_value("host", broker.host);
  config->set_value("port", std::to_string(broker.port));
  config->set_value("presence", "no");
  return com::create_client(config, com::TransportType::mqtt);
}

}  // namespace

BrokerClient::BrokerClient(const BrokerAddress& broker, const std::string& role) {
  com::library_init();
  client_ = create(broker, role);
  signalled_client = client_.get();
  install_signal_handler();
}

BrokerClient::~BrokerClient() {
  client_.reset();
  com::library_cleanup();
}

void BrokerClient::run() {
  client_->run();
}

}  // namespace ecu::sim
