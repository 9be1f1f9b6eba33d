#include <cstdint>
#include <utility>

#include <ecu/quil/environment_daemon.h>
#include <ecu/quil/hw_identity_variables.h>
#include <ecu/quil/hw_property_variables.h>
#include <ecu/quil/version_variables.h>
#include <ecu/quil/vin_variables.h>
#include <ecu/tamu/diag/pgn_request_client.h>
#include <ecu/tamu/logging/logging.h>

namespace ecu::quil {

namespace logging = tamu::logging;

namespace {

constexpr int port_reader_setting = 1;
constexpr unsigned int vin_request_seconds = 12;
constexpr std::uint32_t vin_confirmations = 5;

// Refers to the daemon without owning it: the destructor of the daemon unsubscribes it.
std::shared_ptr<tamu::com::ISubscriptionObserver> unowned(EnvironmentDaemon* daemon) {
  return {std::shared_ptr<void>(), daemon};
}

}  // namespace

EnvironmentDaemon::EnvironmentDaemon(std::shared_ptr<tamu::com::ITransportClient> client,
                                     const std::unique_ptr<tamu::config::Configuration>& config)
    : m_client(std::move(client)),
      m_registry(std::make_shared<Registry>()),
      m_sysparam_publication([this] { publish_all(VariableSource::SYSPARAM); }),
      m_port_handler(std::make_shared<QueuingPortHandler>(config->get("qpread"), config->get("qpwrite"),
                                                          port_reader_setting)),
      m_sysparam_handler(m_client, m_port_handler, [this] { sysparams_received(); }),
      m_sec_store_handler(m_client, m_port_handler),
      m_vin_received(std::make_shared<std::condition_variable>()),
      m_vin_requester_running(std::make_shared<std::atomic_bool>(false)),
      m_vin_mutex(std::make_shared<std::mutex>()),
      m_vin_requester(m_client, m_vin_mutex, m_vin_received, m_vin_requester_running,
                      tamu::diag::create_pgn_request_client(m_client), vin_request_seconds) {}

EnvironmentDaemon::~EnvironmentDaemon() {
  // The port's thread calls members that are destroyed before the port.
  m_port_handler->stop();
  for (const auto& variable : *m_registry) {
    if (!variable->topic().empty()) {
      m_client->unsubscribe(variable->topic(), unowned(this));
    }
  }
}

void EnvironmentDaemon::init() {
  m_port_handler->init();
  *m_registry = make_registry();
  m_registry_complete = true;
  subscribe_to_sources();
  m_vin_requester.init();
}

void EnvironmentDaemon::message(const std::string& topic, const tamu::com::Message& msg) {
  for (const auto& variable : *m_registry) {
    if (variable->topic() != topic) {
      continue;
    }
    logging::info("Received data for EcuVar ", variable->name(), " (from ", topic, ")");
    if (variable->extract(msg)) {
      publish(*variable, true);
    } else {
      logging::debug("Unable to extract EcuVar from topic: ", topic);
    }
  }
}

tamu::com::PublishResult EnvironmentDaemon::publish(const EnvironmentVariable& var, bool retained) {
  auto message = var.to_message();
  if (!message) {
    return tamu::com::PublishResult::success;
  }
  message->retained = retained;
  return m_client->publish(var.published_topic(), std::move(*message));
}

void EnvironmentDaemon::initial_publish() {
  publish_all(VariableSource::LOCAL);
  sysparams_received();
}

void EnvironmentDaemon::sysparams_received() {
  if (m_registry_complete) {
    m_sysparam_publication.request();
  }
}

void EnvironmentDaemon::stop() {
  m_vin_requester.stop();
  m_sysparam_handler.stop();
  m_port_handler->request_stop();
}

EnvironmentDaemon::Registry EnvironmentDaemon::make_registry() {
  return {
      std::make_shared<SerialNumberVariable>(),
      make_vin_variable("00"),
      make_vin_variable("ee"),
      make_vin_variable("fe"),
      std::make_shared<HWVersionVariable>(),
      std::make_shared<UBootVersionVariable>(),
      std::make_shared<HypervisorVersionVariable>(),
      std::make_shared<CSPVersionVariable>(),
      std::make_shared<TeleKernelVersionVariable>(),
      std::make_shared<TeleDTBVersionVariable>(),
      std::make_shared<TPAKernelVersionVariable>(),
      std::make_shared<UpdateKernelVersionVariable>(),
      std::make_shared<UpdateDTBVersionVariable>(),
      std::make_shared<HWVariantVariable>(),
      std::make_shared<NetworkVariantVariable>(),
      std::make_shared<HWPropertyVehicleType>(),
      std::make_shared<HWPropertyRegion>(),
      std::make_shared<HWPropertyModemTypeVariable>(),
      std::make_shared<HWPropertyDivAntennaVariable>(),
      std::make_shared<HWPropertyHasWifiBtVariable>(),
      std::make_shared<HWPropertyHasExternalWifiBtAntennaVariable>(),
      std::make_shared<HWPropertyHasGnssVariable>(),
      std::make_shared<HWPropertyHasEthernet1Variable>(),
      std::make_shared<HWPropertyHasEthernet2Variable>(),
      std::make_shared<HWPropertyHasAccelerometerVariable>(),
      std::make_shared<HWPropertyHasDigitalIoVariable>(),
      std::make_shared<HWPropertyHasD8Variable>(),
      std::make_shared<HWPropertyHasCan1Variable>(),
      std::make_shared<HWPropertyHasCan2Variable>(),
      std::make_shared<HWPropertyHasNetworkManagementVariable>(),
      std::make_shared<HWPropertyHasIntSimVariable>(),
      std::make_shared<HWPropertyHasExtSimVariable>(),
      std::make_shared<TopVersionVariable>([this] { return m_sysparam_handler.get_top_version(); }),
  };
}

std::shared_ptr<EnvironmentVariable> EnvironmentDaemon::make_vin_variable(
    const std::string& topic_suffix) const {
  return std::make_shared<VinVariableJ1939Ecu>(topic_suffix, m_vin_mutex, m_vin_received,
                                               m_vin_requester_running, vin_confirmations);
}

void EnvironmentDaemon::subscribe_to_sources() {
  std::size_t subscriptions = 0;
  for (const auto& variable : *m_registry) {
    if (!variable->topic().empty()) {
      m_client->subscribe(variable->topic(), 0, unowned(this));
      ++subscriptions;
    }
  }
  logging::debug("Subscribed to ", subscriptions, " topics");
}

void EnvironmentDaemon::publish_all(VariableSource source) {
  for (const auto& variable : *m_registry) {
    if (variable->source() == source) {
      publish(*variable, true);
    }
  }
}

}  // namespace ecu::quil
