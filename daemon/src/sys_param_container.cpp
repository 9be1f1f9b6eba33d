#include <cstring>
#include <string_view>

#include <ecu/quil/sec_store_handler.h>
#include <ecu/quil/sys_param_container.h>
#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/pb/messages.pb.h>

namespace ecu::quil {

namespace logging = tamu::logging;
namespace pb = tamu::pb;

namespace {

constexpr std::string_view prefix = "[SysParam] ";

constexpr std::size_t id_size = sizeof(std::uint32_t);
constexpr std::size_t value_offset = 2 * sizeof(std::uint32_t);  // behind identifier and length

template <class Body>
SysParamContainer::MessageResult framed(const Body& body) {
  auto message = tamu::com::PbInternalMessageAdapter<Body>().serialize(body);
  if (!message) {
    // The adapter does not say why. All that can keep it from serialising is the body, so that is the code.
    return static_cast<int>(tamu::com::err::PbInternalDeserializationError::bad_body);
  }
  return std::move(*message);
}

void fill(pb::SystemParameterEntry& entry, const SysParamContainer::SysParam& param) {
  entry.set_ota_id(param.ota_id);
  entry.set_value(param.payload);
}

}  // namespace

void SysParamContainer::SysParams::put(SysParam param) {
  if (const auto held = m_index.find(param.ota_id); held != m_index.end()) {
    m_params[held->second].payload = std::move(param.payload);
    return;
  }
  // In this order the index never refers to a parameter that is not there, even when memory runs out.
  m_params.push_back(std::move(param));
  m_index.emplace(m_params.back().ota_id, m_params.size() - 1);
}

const SysParamContainer::SysParam* SysParamContainer::SysParams::find(std::uint32_t ota_id) const {
  const auto found = m_index.find(ota_id);
  return found == m_index.end() ? nullptr : &m_params[found->second];
}

void SysParamContainer::SysParams::clear() {
  m_params.clear();
  m_index.clear();
}

SysParamContainer::State::State(std::chrono::milliseconds timeout, std::function<Clock::time_point()> now)
    : m_timeout(timeout), m_now(std::move(now)) {}

void SysParamContainer::State::set(ContainerState state) {
  const std::lock_guard lock(m_mutex);
  if (state == ContainerState::UPDATING) {
    m_previous = m_current;
    m_deadline = m_now() + m_timeout;
  }
  m_current = state;
}

SysParamContainer::ContainerState SysParamContainer::State::get() {
  const std::lock_guard lock(m_mutex);
  if (m_current == ContainerState::UPDATING && m_now() >= m_deadline) {
    m_current = m_previous;
    logging::error(prefix, "System parameter write timed out with no response from RT! Returning to state ",
                   static_cast<int>(m_current));
  }
  return m_current;
}

SysParamContainer::SysParamContainer(std::shared_ptr<QueuingPortHandler> port, std::function<void()> callback,
                                     std::chrono::milliseconds timeout,
                                     std::function<Clock::time_point()> now)
    : m_port(std::move(port)),
      m_sysparams(std::make_shared<SysParams>()),
      m_callback(std::move(callback)),
      m_state(timeout, std::move(now)) {
  m_port->add_consumer(this);
}

SysParamContainer::~SysParamContainer() {
  m_port->stop();
}

std::pair<bool, SysParamContainer::SysParam> SysParamContainer::to_parameter(const IpcSignal& signal) {
  const std::size_t size = signal.data.size();
  if (size < id_size) {
    logging::error(prefix, "Insufficient signal data to create a SysParam: ", size, ". Expecting at least ",
                   id_size, " bytes for the ota_id");
    return {false, {}};
  }
  SysParam param;
  std::memcpy(&param.ota_id, signal.data.data(), id_size);
  if (size <= value_offset) {
    logging::warning(prefix, "Creating a Sysparam with no payload. Signal data size: ", size);
  } else {
    param.payload.assign(signal.data.data() + value_offset, size - value_offset);
  }
  return {true, std::move(param)};
}

tamu::ipc::IpcSignal SysParamContainer::to_signal(const SysParam& param) {
  IpcSignal signal;
  signal.id = param.ota_id;
  signal.data.resize(value_offset + param.payload.size());
  const auto length = static_cast<std::uint32_t>(param.payload.size());
  std::memcpy(signal.data.data(), &param.ota_id, id_size);
  std::memcpy(signal.data.data() + id_size, &length, sizeof(length));
  param.payload.copy(signal.data.data() + value_offset, param.payload.size());
  return signal;
}

void SysParamContainer::consume(const IpcSignal& signal) {
  if (is_sec_store_id(signal.id)) {
    return;
  }
  if (signal.data.empty()) {
    logging::error(prefix, "IpcSignal data is empty. Signal will not be handled");
    return;
  }
  m_state.set(ContainerState::RECEIVING);
  logging::info(prefix, "Going to handle parameter with id: ", logging::hex(signal.id));
  if (auto [usable, param] = to_parameter(signal); usable) {
    m_frame_params.put(std::move(param));
  }
}

void SysParamContainer::finished() {
  frame_finished();
}

void SysParamContainer::frame_finished() {
  const std::vector<SysParam>& params = m_frame_params.all();
  logging::debug(prefix, "frame finished, ", params.size(), " parameters to merge into SysParamContainer");
  if (params.empty()) {
    return;
  }
  merge(params);
  m_frame_params.clear();
  m_state.set(ContainerState::SYNCED);
  if (m_callback) {
    m_callback();
  }
}

std::vector<SysParamContainer::SysParam> SysParamContainer::diff(
    const std::vector<SysParam>& incoming) const {
  const auto held = get_sysparams();
  std::vector<SysParam> different;
  for (const SysParam& param : incoming) {
    const SysParam* same_id = held->find(param.ota_id);
    if (same_id == nullptr || *same_id != param) {
      different.push_back(param);
    }
  }
  return different;
}

void SysParamContainer::merge(const std::vector<SysParam>& incoming) {
  auto merged = std::make_shared<SysParams>(*get_sysparams());
  for (const SysParam& param : incoming) {
    merged->put(param);
  }
  const std::lock_guard lock(m_sysparams_mutex);
  m_sysparams = std::move(merged);
}

bool SysParamContainer::update(std::vector<SysParam>&& params) {
  const std::vector<SysParam> changed = diff(params);
  if (changed.empty()) {
    return true;
  }
  m_state.set(ContainerState::UPDATING);
  std::vector<IpcSignal> signals;
  signals.reserve(changed.size());
  for (const SysParam& param : changed) {
    signals.push_back(to_signal(param));
  }
  if (!m_port->write(signals)) {
    m_state.set(get_sysparams()->empty() ? ContainerState::EMPTY : ContainerState::SYNCED);
    return false;
  }
  return true;
}

std::shared_ptr<const SysParamContainer::SysParams> SysParamContainer::get_sysparams() const {
  const std::lock_guard lock(m_sysparams_mutex);
  return m_sysparams;
}

SysParamContainer::ContainerState SysParamContainer::get_state() {
  return m_state.get();
}

bool SysParamContainer::is_updating() {
  const ContainerState state = get_state();
  return state == ContainerState::UPDATING || state == ContainerState::RECEIVING;
}

SysParamContainer::MessageResult SysParamContainer::to_message(const SysParam& param) {
  pb::SystemParameterEntry entry;
  fill(entry, param);
  return framed(entry);
}

SysParamContainer::MessageResult SysParamContainer::to_message(const std::vector<SysParam>& params) {
  pb::SystemParameterList list;
  list.mutable_entry()->Reserve(static_cast<int>(params.size()));
  for (const SysParam& param : params) {
    fill(*list.add_entry(), param);
  }
  return framed(list);
}

bool SysParamContainer::from_message_all(const tamu::com::Message& msg, std::vector<SysParam>& out) {
  auto list = tamu::com::PbInternalMessageAdapter<pb::SystemParameterList>().deserialize(msg);
  if (!list.ok) {
    logging::error(prefix, "Unable to deserialize SystemParameterList form com::Message");
    return false;
  }
  for (pb::SystemParameterEntry& entry : *list.body.mutable_entry()) {
    out.push_back({entry.ota_id(), std::move(*entry.mutable_value())});
  }
  logging::info(prefix, out.size(), " have been deserialized");
  return true;
}

}  // namespace ecu::quil
