#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <ecu/tamu/com/transport_client.h>

namespace ecu::sim {

/// The address of the broker.
struct BrokerAddress {
  std::string host = "localhost";  // or the path of its Unix-domain socket, beginning with '/'
  std::uint16_t port = 1883;
};

/// The program's connection to the bus. Make it before any thread is started, and only one: it blocks SIGINT
/// and SIGTERM in every thread of the process; they end `run`.
class BrokerClient {
 public:
  /// `role` becomes part of the client identifier.
  BrokerClient(const BrokerAddress& broker, const std::string& role);
  ~BrokerClient();
  BrokerClient(const BrokerClient&) = delete;
  BrokerClient& operator=(const BrokerClient&) = delete;

  [[nodiscard]] const std::shared_ptr<tamu::com::ITransportClient>& client() const noexcept {
    return client_;
  }

  /// Serves the connection until SIGINT, SIGTERM or the client's `stop`. A second signal ends the process.
  void run();

 private:
  std::shared_ptr<tamu::com::ITransportClient> client_;
};

}  // namespace ecu::sim
