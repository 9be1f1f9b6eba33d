#include <cstdint>
#include <optional>
#include <stdexcept>
#include <utility>

#include <ecu/quil/sys_param_req_handler.h>
#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/pb/messages.pb.h>

namespace ecu::quil {

namespace logging = tamu::logging;
using State = SysParamContainer::ContainerState;

namespace {

constexpr std::string_view prefix = "[SysParam] ";

constexpr const char* request_topic = "system/quil/request/sysparam";
constexpr const char* request_all_topic = "system/quil/request/sysparams";
constexpr const char* write_topic = "system/sysparams/write";
constexpr const char* topics[] = {request_topic, request_all_topic, write_topic};

// The receiver tells the answers apart by the identifier inside.
constexpr const char* answer_topic = "system/sysparam/";
constexpr const char* answer_all_topic = "system/sysparams";

constexpr std::uint32_t top_version_id = 0xa009;

std::optional<std::uint32_t> to_identifier(const std::string& text) {
  try {
    return static_cast<std::uint32_t>(std::stoi(text));
  } catch (const std::logic_error&) {
    logging::warning(prefix, "Unable to convert '", text, "' to string, unable to response for this id!");
    return std::nullopt;
  }
}

}  // namespace

SysParamReqHandler::SysParamReqHandler(std::shared_ptr<tamu::com::ITransportClient> client,
                                       std::shared_ptr<QueuingPortHandler> port,
                                       std::function<void()> callback, std::chrono::milliseconds timeout,
                                       std::chrono::milliseconds poll)
    : m_client(std::move(client)),
      m_container(std::move(port), std::move(callback), timeout),
      m_observer(std::make_shared<SubWrapper>(this)),
      m_poll_interval(poll) {
  for (const char* topic : topics) {
    m_client->subscribe(topic, 0, m_observer);
  }
}

SysParamReqHandler::~SysParamReqHandler() {
  stop();
  for (const char* topic : topics) {
    m_client->unsubscribe(topic, m_observer);
  }
}

void SysParamReqHandler::message(const std::string& topic, const tamu::com::Message& msg) {
  if (topic == request_topic) {
    answer_chosen(msg);
  } else if (topic == request_all_topic) {
    answer_all();
  } else if (topic == write_topic) {
    write(msg);
  } else {
    logging::notice(prefix, "Unable to handle sysparam request for topic ", topic);
  }
}

void SysParamReqHandler::answer_chosen(const tamu::com::Message& msg) {
  const auto request = tamu::com::PbInternalMessageAdapter<tamu::pb::EcuVariableReq>().deserialize(msg);
  if (!request.ok) {
    logging::warning(prefix, "SystemParameter request payload could not be deserialized");
    return;
  }
  for (const std::string& text : request.body.name()) {
    if (is_stopped()) {
      return;
    }
    answer_one(text);
  }
}

void SysParamReqHandler::answer_one(const std::string& text) {
  const auto id = to_identifier(text);
  if (!id || !wait_until_settled()) {
    return;
  }
  const auto params = m_container.get_sysparams();
  const SysParamContainer::SysParam* param = params->find(*id);
  if (param == nullptr) {
    return;
  }
  auto message = SysParamContainer::to_message(*param);
  if (!message) {
    logging::error(prefix, "Unable to serialize SystemParameterEntry for id ", *id,
                   " error: ", message.error());
    return;
  }
  m_client->publish(answer_topic, std::move(message).value());
}

void SysParamReqHandler::answer_all() {
  if (!wait_until_settled()) {
    return;
  }
  auto message = SysParamContainer::to_message(m_container.get_sysparams()->all());
  if (!message) {
    logging::error(prefix, "Unable to serialize SystemParameterList, error: ", message.error());
    return;
  }
  m_client->publish(answer_all_topic, std::move(message).value());
}

void SysParamReqHandler::write(const tamu::com::Message& msg) {
  logging::debug(prefix, "SysParam write instruction received.");
  if (m_container.get_state() != State::SYNCED) {
    logging::info(prefix,
                  "Discarded request to write SysParams since they have gone out of sync with local cache");
    return;
  }
  std::vector<SysParamContainer::SysParam> params;
  if (!SysParamContainer::from_message_all(msg, params)) {
    logging::error(prefix, "Unable to extract system-parameters from transport message.");
    return;
  }
  if (!m_container.update(std::move(params))) {
    logging::error(prefix, "Unable to write SysParams to Queueing Port!");
  }
}

bool SysParamReqHandler::wait_until_settled() {
  while (m_container.is_updating()) {
    std::unique_lock lock(m_stop_mutex);
    if (m_stop_requested.wait_for(lock, m_poll_interval, [this] { return m_stopped; })) {
      return false;
    }
  }
  return true;
}

bool SysParamReqHandler::is_stopped() {
  const std::lock_guard lock(m_stop_mutex);
  return m_stopped;
}

std::string SysParamReqHandler::get_top_version() const {
  const auto params = m_container.get_sysparams();
  if (const SysParamContainer::SysParam* param = params->find(top_version_id)) {
    return param->payload;
  }
  logging::warning(prefix, "Unable to find system parameter for TopVersion (0x",
                   logging::hex(top_version_id, 3), ")");
  return {};
}

void SysParamReqHandler::stop() {
  const std::lock_guard lock(m_stop_mutex);
  m_stopped = true;
  m_stop_requested.notify_all();
}

}  // namespace ecu::quil
