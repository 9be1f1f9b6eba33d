#include "ecusim/broker_client.h"

#include <unistd.h>

#include <csignal>

#include <ecu/tamu/config/configuration.h>

namespace ecu::sim {

namespace com = tamu::com;

namespace {

// Read by the signal handler, which runs only while the main thread waits inside the client's `run`.
com::ITransportClient* signalled_client = nullptr;

sigset_t termination_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

void set_handler(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  action.sa_mask = termination_signals();
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

void on_signal(int /*signal_number*/) {
  signalled_client->stop();
  set_handler(SIG_DFL);
}

void install_signal_handler() {
  const sigset_t signals = termination_signals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  set_handler(on_signal);
}

std::shared_ptr<com::ITransportClient> create(const BrokerAddress& broker, const std::string& role) {
  auto config = std::make_unique<tamu::config::Configuration>();
  // The broker ends a connection when another one takes its name, so each process has its own.
  config->set_value("client_name", "ecusim-" + role + "-" + std::to_string(getpid()));
  config->set_value("host", broker.host);
  config->set_value("port", std::to_string(broker.port));
  config->set_value("presence", "no");
  return com::create_client(config, com::TransportType::mqtt);
}

}  // namespace

Bus::Bus(const BrokerAddress& broker, const std::string& role) {
  com::library_init();
  client_ = create(broker, role);
  signalled_client = client_.get();
  install_signal_handler();
}

Bus::~Bus() {
  client_.reset();
  com::library_cleanup();
}

void Bus::run() {
  client_->run();
}

}  // namespace ecu::sim
