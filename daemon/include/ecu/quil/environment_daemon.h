#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <ecu/quil/environment_variable.h>
#include <ecu/quil/queuing_port_handler.h>
#include <ecu/quil/sec_store_handler.h>
#include <ecu/quil/serial_task.h>
#include <ecu/quil/sys_param_req_handler.h>
#include <ecu/quil/vin_requester_thread.h>
#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/config/configuration.h>

namespace ecu::quil {

/// Owns every published variable, passes each bus message to the variables that listen on its topic, and
/// publishes the values that they take from it.
class EnvironmentDaemon final : public tamu::com::ISubscriptionObserver {
 public:
  /// `config` is only read during the call.
  EnvironmentDaemon(std::shared_ptr<tamu::com::ITransportClient> client,
                    const std::unique_ptr<tamu::config::Configuration>& config);
  ~EnvironmentDaemon() override;

  EnvironmentDaemon(const EnvironmentDaemon&) = delete;
  EnvironmentDaemon& operator=(const EnvironmentDaemon&) = delete;

  /// Opens the queueing ports, builds the registry, subscribes to its topics and starts to request the VIN.
  /// Called once, before the client is started.
  void init();

  /// Passes `msg` to every variable that listens on `topic`, in registry order, and publishes those that took
  /// a value from it. Called on a delivery thread of the client.
  void message(const std::string& topic, const tamu::com::Message& msg) override;

  /// Publishes `var` with the retain flag `retained`, and returns the client's result. A variable that cannot
  /// be serialized is not published, which counts as success. Takes no lock.
  tamu::com::PublishResult publish(const EnvironmentVariable& var, bool retained);

  /// Publishes the variables that do not depend on messages. Called once, by the main thread, after `init`.
  void initial_publish();

  /// Publishes the variables that are computed from the system parameters, or leaves that to the thread that
  /// is already doing it. Does nothing before the registry is built. May be called from any thread.
  void sysparams_received();

  /// Stops requesting the VIN, wakes callers that wait for parameters, aborts port I/O. The caller stops the
  /// client. May be called from the signal handler.
  void stop();

 private:
  using Registry = std::vector<std::shared_ptr<EnvironmentVariable>>;

  [[nodiscard]] Registry make_registry();
  [[nodiscard]] std::shared_ptr<EnvironmentVariable> make_vin_variable(const std::string& topic_suffix) const;
  void subscribe_to_sources();
  void publish_all(VariableSource source);

  // Constant after construction, or with their own synchronisation. Destroyed from the last to the first: the
  // later ones use the earlier ones.
  std::shared_ptr<tamu::com::ITransportClient> m_client;
  std::shared_ptr<Registry> m_registry;  // constant once m_registry_complete is true
  std::atomic<bool> m_registry_complete = false;
  SerialTask m_sysparam_publication;
  std::shared_ptr<QueuingPortHandler> m_port_handler;
  SysParamReqHandler m_sysparam_handler;
  SecStoreHandler m_sec_store_handler;
  // The next three are shared by the requester of the VIN and the variables that receive it.
  std::shared_ptr<std::condition_variable> m_vin_received;
  std::shared_ptr<std::atomic_bool> m_vin_requester_running;
  std::shared_ptr<std::mutex> m_vin_mutex;
  VINRequesterThread m_vin_requester;
};

}  // namespace ecu::quil
