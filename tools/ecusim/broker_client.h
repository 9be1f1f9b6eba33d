#pragma once

#include <memory>

#include <ecu/tamu/com/transport_client.h>

#include "common/broker_options.h"

namespace ecu::sim {

/// The program's connection to the bus. Create only one, before starting any thread: it blocks SIGINT
/// and SIGTERM in every thread of the process; they end `run`.
class BrokerClient {
 public:
  /// Throws `tools::InputError` when options are invalid.
  explicit BrokerClient(const tools::BrokerOptions& broker);
  ~BrokerClient();
  BrokerClient(const BrokerClient&) = delete;
  BrokerClient& operator=(const BrokerClient&) = delete;

  [[nodiscard]] const std::shared_ptr<tamu::com::ITransportClient>& client() const noexcept {
    return client_;
  }

  /// Serves the connection until SIGINT, SIGTERM or the client's `stop`. A second signal of either kind ends
  /// the process.
  void run();

 private:
  std::shared_ptr<tamu::com::ITransportClient> client_;
};

}  // namespace ecu::sim
