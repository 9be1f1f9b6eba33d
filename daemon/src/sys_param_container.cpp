#include <algorithm>

#include <ecu/quil/sys_param_container.h>
#include <ecu/tamu/com/system_parameters.h>
#include <ecu/tamu/logging/logging.h>

namespace ecu::quil {

namespace logging = tamu::logging;

namespace {

constexpr auto logger = logging::module("SysParam");

}  // namespace

SysParamContainer::SysParamContainer(std::shared_ptr<QueuingPortHandler> port, std::function<void()> callback,
                                     std::chrono::milliseconds timeout,
                                     std::function<Clock::time_point()> now)
    : m_port(std::move(port)), m_callback(std::move(callback)), m_state(timeout, std::move(now)) {
  m_port->add_consumer(this);
}

SysParamContainer::~SysParamContainer() {
  m_port->stop();
}

void SysParamContainer::consume(const IpcSignal& signal) {
  if (tamu::com::is_secure_storage_id(signal.id)) {
    return;
  }
  if (signal.data.empty()) {
    logger.error("IpcSignal data is empty. Signal will not be handled");
    return;
  }
  m_state.set(ContainerState::RECEIVING);
  if (m_drop_frame) {
    return;
  }
  logger.info("Going to handle parameter with id: ", logging::hex(signal.id));
  if (auto [usable, param] = to_parameter(signal); usable) {
    collect(std::move(param));
  }
}

void SysParamContainer::collect(SysParam param) {
  m_frame_params.put(std::move(param));
  if (m_frame_params.all().size() > max_params || m_frame_params.payload_bytes() > max_payload_bytes) {
    logger.error("A frame of more than ", max_params, " parameters or ", max_payload_bytes,
                 " bytes of values is dropped");
    m_drop_frame = true;
    m_frame_params = {};
  }
}

void SysParamContainer::finished() {
  frame_finished();
}

void SysParamContainer::frame_finished() {
  const std::size_t size = m_frame_params.all().size();
  logger.debug("frame finished, ", size, " parameters to merge into SysParamContainer");
  if (m_drop_frame) {
    m_drop_frame = false;
    settle();
  } else if (size > 0) {
    merge_frame();
  }
}

void SysParamContainer::merge_frame() {
  // Taken out first, so that the next frame starts empty and without the memory of this one.
  SysParams frame = std::exchange(m_frame_params, {});
  if (!has_room_for(frame.all())) {
    logger.error("A frame after which there would be more than ", max_params, " parameters or ",
                 max_payload_bytes, " bytes of values is dropped");
    settle();
    return;
  }
  try {
    merge(std::move(frame).all());
  } catch (...) {
    settle();
    throw;
  }
  m_state.set(ContainerState::SYNCED);
  if (m_callback) {
    m_callback();
  }
}

bool SysParamContainer::has_room_for(const std::vector<SysParam>& incoming) const {
  const tamu::MutexLock lock(m_sysparams_mutex);
  std::size_t params = m_sysparams.all().size();
  std::size_t bytes = m_sysparams.payload_bytes();
  for (const SysParam& param : incoming) {
    const SysParam* const held = m_sysparams.find(param.ota_id);
    params += held == nullptr ? 1U : 0U;
    bytes += param.payload.size();
    bytes -= held == nullptr ? 0 : held->payload.size();
  }
  return params <= max_params && bytes <= max_payload_bytes;
}

// Ends a change that was not carried out.
void SysParamContainer::settle() {
  const tamu::MutexLock lock(m_sysparams_mutex);
  m_state.set(m_sysparams.empty() ? ContainerState::EMPTY : ContainerState::SYNCED);
}

// For each parameter of `incoming`, in order, whether the copy lacks it or holds another value.
std::vector<bool> SysParamContainer::diff(const Sequence<SysParam>& incoming) const {
  std::vector<bool> differs;
  const tamu::MutexLock lock(m_sysparams_mutex);
  incoming([&](const SysParam& param) TAMU_REQUIRES(m_sysparams_mutex) {
    const SysParam* same_id = m_sysparams.find(param.ota_id);
    differs.push_back(same_id == nullptr || *same_id != param);
    return true;
  });
  return differs;
}

void SysParamContainer::merge(std::vector<SysParam> incoming) {
  const tamu::MutexLock lock(m_sysparams_mutex);
  for (SysParam& param : incoming) {
    m_sysparams.put(std::move(param));
  }
}

bool SysParamContainer::update(const Sequence<SysParam>& params) {
  const std::vector<bool> differs = diff(params);
  const auto count = static_cast<std::size_t>(std::count(differs.begin(), differs.end(), true));
  if (count == 0) {
    return true;
  }
  m_state.set(ContainerState::UPDATING);
  const Sequence<IpcSignal> records = [&](const auto& take) {
    auto next = differs.begin();
    return params([&](const SysParam& param) { return !*next++ || take(to_signal(param)); });
  };
  if (!m_port->write(count, records)) {
    settle();
    return false;
  }
  return true;
}

std::vector<SysParam> SysParamContainer::get_sysparams() const {
  const tamu::MutexLock lock(m_sysparams_mutex);
  return m_sysparams.all();
}

SysParamContainer::MessageResult SysParamContainer::all_to_message() const {
  const tamu::MutexLock lock(m_sysparams_mutex);
  return to_message(m_sysparams.all());
}

std::optional<SysParam> SysParamContainer::find(std::uint32_t ota_id) const {
  const tamu::MutexLock lock(m_sysparams_mutex);
  const SysParam* param = m_sysparams.find(ota_id);
  return param == nullptr ? std::nullopt : std::optional(*param);
}

ContainerState SysParamContainer::get_state() {
  return m_state.get();
}

bool SysParamContainer::is_updating() {
  const ContainerState state = get_state();
  return state == ContainerState::UPDATING || state == ContainerState::RECEIVING;
}

}  // namespace ecu::quil
