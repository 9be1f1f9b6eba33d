#include <cstdint>
#include <optional>
#include <stdexcept>
#include <utility>

#include <ecu/quil/sys_param_req_handler.h>
#include <ecu/tamu/com/message_fields.h>
#include <ecu/tamu/com/system_parameters.h>
#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/pb/messages.pb.h>

namespace ecu::quil {

namespace logging = tamu::logging;
namespace topics = tamu::com::topics;

namespace {

constexpr auto logger = logging::module("SysParam");

constexpr const char* subscribed_topics[] = {topics::parameter_request, topics::all_parameters_request,
                                             topics::parameter_write};

std::optional<std::uint32_t> to_identifier(const std::string& text) {
  try {
    return static_cast<std::uint32_t>(std::stoi(text));
  } catch (const std::logic_error&) {
    logger.warning("Unable to convert '", text, "' to string, unable to response for this id!");
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
  for (const char* topic : subscribed_topics) {
    m_client->subscribe(topic, 0, m_observer);
  }
}

SysParamReqHandler::~SysParamReqHandler() {
  stop();
  for (const char* topic : subscribed_topics) {
    m_client->unsubscribe(topic, m_observer);
  }
}

void SysParamReqHandler::message(const std::string& topic, const tamu::com::Message& msg) {
  if (topic == topics::parameter_request) {
    answer_chosen(msg);
  } else if (topic == topics::all_parameters_request) {
    answer_all();
  } else if (topic == topics::parameter_write) {
    write(msg);
  } else {
    logger.notice("Unable to handle sysparam request for topic ", topic);
  }
}

void SysParamReqHandler::answer_chosen(const tamu::com::Message& msg) {
  const auto request = tamu::com::MessageFields<tamu::pb::EcuVariableReq>::of(msg.payload);
  if (!request) {
    logger.warning("SystemParameter request payload could not be deserialized");
    return;
  }
  request->for_each([this](const tamu::pb::EcuVariableReq& field) {
    if (is_stopped()) {
      return false;
    }
    for (const std::string& text : field.name()) {
      answer_one(text);
    }
    return true;
  });
}

void SysParamReqHandler::answer_one(const std::string& text) {
  const auto id = to_identifier(text);
  if (!id || !wait_until_settled()) {
    return;
  }
  const auto param = m_container.find(*id);
  if (!param) {
    return;
  }
  auto message = SysParamContainer::to_message(*param);
  if (!message) {
    logger.error("Unable to serialize SystemParameterEntry for id ", *id, " error: ", message.error());
    return;
  }
  m_client->publish(topics::parameter_answer, std::move(message).value());
}

void SysParamReqHandler::answer_all() {
  if (!wait_until_settled()) {
    return;
  }
  auto message = m_container.all_to_message();
  if (!message) {
    logger.error("Unable to serialize SystemParameterList, error: ", message.error());
    return;
  }
  m_client->publish(topics::all_parameters_answer, std::move(message).value());
}

void SysParamReqHandler::write(const tamu::com::Message& msg) {
  logger.debug("SysParam write instruction received.");
  if (m_container.get_state() != ContainerState::SYNCED) {
    logger.info("Discarded request to write SysParams since they have gone out of sync with local cache");
    return;
  }
  const auto params = SysParamContainer::from_message_all(msg);
  if (!params) {
    logger.error("Unable to extract system-parameters from transport message.");
    return;
  }
  if (!m_container.update(*params)) {
    logger.error("Unable to write SysParams to Queueing Port!");
  }
}

bool SysParamReqHandler::wait_until_settled() {
  while (m_container.is_updating()) {
    tamu::MutexLock lock(m_stop_mutex);
    if (m_stop_requested.wait_for(lock, m_poll_interval,
                                  [this]() TAMU_REQUIRES(m_stop_mutex) { return m_stopped; })) {
      return false;
    }
  }
  return true;
}

bool SysParamReqHandler::is_stopped() {
  const tamu::MutexLock lock(m_stop_mutex);
  return m_stopped;
}

std::string SysParamReqHandler::get_top_version() const {
  if (auto param = m_container.find(tamu::com::top_version_id)) {
    return std::move(param->payload);
  }
  logger.warning("Unable to find system parameter for TopVersion (0x",
                 logging::hex(tamu::com::top_version_id, 3), ")");
  return {};
}

void SysParamReqHandler::stop() {
  const tamu::MutexLock lock(m_stop_mutex);
  m_stopped = true;
  m_stop_requested.notify_all();
}

}  // namespace ecu::quil
