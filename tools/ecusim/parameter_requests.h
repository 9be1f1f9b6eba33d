#pragma once

#include <memory>
#include <stop_token>
#include <thread>

#include <ecu/tamu/com/transport_client.h>

namespace ecu::sim {

/// Asks for all system parameters once a second, on a thread of its own, as long as it lives.
class ParameterRequests {
 public:
  explicit ParameterRequests(std::shared_ptr<tamu::com::ITransportClient> client);

 private:
  void request(const std::stop_token& stop) const;

  std::shared_ptr<tamu::com::ITransportClient> client_;
  std::jthread thread_;
};

}  // namespace ecu::sim
