#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <ecu/tamu/com/transport_client.h>

namespace ecu::sim {

/// Where the broker listens.
struct BrokerAddress {
  std::string host = "localhost";  // or the path of its Unix-domain socket, beginning with '/'
  std::uint16_t port = 1883;
};

/// The program's connection to the bus. Make it before any thread is started, and only one: it blocks SIGINT
/// and SIGTERM in every thread of the process, and takes them to end `run`.
class Bus {
 public:
  /// `role` tells the program's clients on one broker apart.
  Bus(const BrokerAddress& broker, const std::string& role);
  ~Bus();
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  [[nodiscard]] const std::shared_ptr<tamu::com::ITransportClient>& client() const noexcept {
    return client_;
  }

  /// Serves the connection until SIGINT, SIGTERM or the client's `stop`. A second signal ends the process.
  void run();

 private:
  std::shared_ptr<tamu::com::ITransportClient> client_;
};

}  // namespace ecu::sim
