#include <algorithm>
#include <array>
#include <utility>

#include <ecu/quil/sec_store_handler.h>
#include <ecu/quil/sys_param_container.h>
#include <ecu/tamu/logging/logging.h>

namespace ecu::quil {

namespace logging = tamu::logging;

namespace {

/// A value of the secure storage: where the bus sets it and reads it, and the identifier of its records.
struct SecStoreValue {
  const char* set_topic;
  const char* get_topic;
  std::uint32_t signal_id;
};

constexpr std::array values{
    SecStoreValue{"system/quil/secstore/setmaster", "system/quil/secstore/getmaster", 2},
    SecStoreValue{"system/quil/secstore/setremote", "system/quil/secstore/getremote", 3},
};

const SecStoreValue* find_by_id(std::uint32_t signal_id) noexcept {
  const auto* found = std::find_if(values.begin(), values.end(), [signal_id](const SecStoreValue& value) {
    return value.signal_id == signal_id;
  });
  return found == values.end() ? nullptr : found;
}

const SecStoreValue* find_by_set_topic(const std::string& topic) noexcept {
  const auto* found = std::find_if(values.begin(), values.end(),
                                   [&topic](const SecStoreValue& value) { return value.set_topic == topic; });
  return found == values.end() ? nullptr : found;
}

}  // namespace

bool is_sec_store_id(std::uint32_t signal_id) noexcept {
  return find_by_id(signal_id) != nullptr;
}

SecStoreHandler::SecStoreHandler(std::shared_ptr<tamu::com::ITransportClient> client,
                                 std::shared_ptr<QueuingPortHandler> port)
    : m_client(std::move(client)), m_port(std::move(port)), m_observer(std::make_shared<SubWrapper>(this)) {
  for (const SecStoreValue& value : values) {
    m_client->subscribe(value.set_topic, 0, m_observer);
  }
  m_port->add_consumer(this);
}

SecStoreHandler::~SecStoreHandler() {
  for (const SecStoreValue& value : values) {
    m_client->unsubscribe(value.set_topic, m_observer);
  }
  m_port->stop();
}

void SecStoreHandler::message(const std::string& topic, const tamu::com::Message& msg) {
  const SecStoreValue* value = find_by_set_topic(topic);
  if (value == nullptr) {
    logging::notice("Message on unexpect topic '", topic, "' received");
    return;
  }
  const std::string bytes(msg.payload.begin(), msg.payload.end());
  if (!m_port->write({SysParamContainer::to_signal({value->signal_id, bytes})})) {
    logging::error("Unable to write SecStore to Queueing Port!");
    return;
  }
  tamu::com::Message echo = msg;
  echo.acknowledged = true;
  echo.retained = true;
  m_client->publish(value->get_topic, std::move(echo));
}

void SecStoreHandler::consume(const IpcSignal& signal) {
  const SecStoreValue* value = find_by_id(signal.id);
  if (value == nullptr) {
    return;
  }
  const auto [usable, param] = SysParamContainer::to_parameter(signal);
  if (!usable) {
    logging::error("Couldn't build a param with to_parameter(), returning early from consume(), signal.id: ",
                   signal.id);
    return;
  }
  logging::notice("Reading sec storage. ota id: ", param.ota_id, " signal id: ", signal.id);
  tamu::com::Message message = tamu::com::make_message(0, {param.payload.begin(), param.payload.end()});
  message.acknowledged = true;
  message.retained = true;
  m_client->publish(value->get_topic, std::move(message));
}

}  // namespace ecu::quil
