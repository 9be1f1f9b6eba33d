#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include <ecu/quil/sec_store_handler.h>
#include <ecu/quil/sys_param_codec.h>
#include <ecu/tamu/com/system_parameters.h>
#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/logging/logging.h>

namespace ecu::quil {

namespace logging = tamu::logging;
namespace topics = tamu::com::topics;

namespace {

// A value of the secure storage: its topics on the bus and the identifier of its records.
struct SecStoreValue {
  const char* set_topic;
  const char* get_topic;
  std::uint32_t signal_id;
};

constexpr std::array values{
    SecStoreValue{topics::set_master, topics::get_master, tamu::com::secure_storage_master_id},
    SecStoreValue{topics::set_remote, topics::get_remote, tamu::com::secure_storage_remote_id},
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

// A list of one record, which is moved into it: an initializer list would hold a second copy of the value.
std::vector<tamu::ipc::IpcSignal> record_of(std::uint32_t signal_id, const tamu::com::Payload& value) {
  std::vector<tamu::ipc::IpcSignal> records;
  records.push_back(to_signal({signal_id, std::string(value.begin(), value.end())}));
  return records;
}

}  // namespace

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
  if (!m_port->write(record_of(value->signal_id, msg.payload))) {
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
  const auto [usable, param] = to_parameter(signal);
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
