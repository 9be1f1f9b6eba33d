#pragma once

#include <memory>
#include <stop_token>
#include <thread>

#include <ecu/tamu/com/transport_client.h>

namespace ecu::sim {

/// Requests all system parameters once a second during its lifetime, on its own thread.
class ParameterRequests {
 public:
  explicit ParameterRequests(std::shared_ptr<tamu::com::ITransportClient> client);

 private:
  void request(const std::stop_token& stop) const;

  std::shared_ptr<tamu::com::ITransportClient> client_;
  std::jthread thread_;
};

}  // namespace ecu::sim
