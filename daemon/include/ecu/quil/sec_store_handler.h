#pragma once

#include <memory>
#include <string>

#include <ecu/quil/queuing_port_handler.h>
#include <ecu/quil/sub_wrapper.h>
#include <ecu/tamu/com/transport_client.h>

namespace ecu::quil {

/// Relays the two values of the secure storage between the bus and the queueing ports. The values are
/// secrets: the relay neither interprets nor logs them.
class SecStoreHandler final : public tamu::com::ISubscriptionObserver,
                              public tamu::ipc::IDataConsumer<tamu::ipc::IpcSignal> {
 public:
  using IpcSignal = tamu::ipc::IpcSignal;

  /// Subscribes to the two set topics and registers at `port`.
  SecStoreHandler(std::shared_ptr<tamu::com::ITransportClient> client,
                  std::shared_ptr<QueuingPortHandler> port);
  /// Unsubscribes, and ends the port's reception.
  ~SecStoreHandler() override;

  SecStoreHandler(const SecStoreHandler&) = delete;
  SecStoreHandler& operator=(const SecStoreHandler&) = delete;

  /// Writes the value to the send port and, once the port has accepted it, echoes it on the get topic. Called
  /// on a delivery thread of the client.
  void message(const std::string& topic, const tamu::com::Message& msg) override;

  /// Publishes a value of the secure storage on its get topic. Called on the port's thread.
  void consume(const IpcSignal& signal) override;
  void finished() override {}
  void frame_finished() override {}

 private:
  std::shared_ptr<tamu::com::ITransportClient> m_client;
  std::shared_ptr<QueuingPortHandler> m_port;
  std::shared_ptr<SubWrapper> m_observer;
};

}  // namespace ecu::quil
