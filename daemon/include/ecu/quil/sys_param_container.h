#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <ecu/quil/container_state.h>
#include <ecu/quil/queuing_port_handler.h>
#include <ecu/quil/sys_param_codec.h>
#include <ecu/quil/sys_params.h>
#include <ecu/tamu/thread_safety.h>

namespace ecu::quil {

/// The daemon's copy of the system parameters that the real-time side keeps. Collects the records of a frame,
/// merges them into the copy at the frame's end, and writes changed values back. Records arrive on the port's
/// thread; any thread may call everything else, and no call waits for a frame.
class SysParamContainer final : public tamu::ipc::IDataConsumer<tamu::ipc::IpcSignal> {
 public:
  using IpcSignal = tamu::ipc::IpcSignal;
  using SysParam = quil::SysParam;
  using ContainerState = quil::ContainerState;
  using State = TimedContainerState;
  using Clock = State::Clock;
  using MessageResult = SysParamMessage;

  /// The limits of a frame, and of the copy after the frame is merged.
  static constexpr std::size_t max_params = 65536;
  static constexpr std::size_t max_payload_bytes = std::size_t{16} * 1024 * 1024;

  /// Registers at `port`. `callback` is called on the port's thread after each merged frame; it may be empty.
  SysParamContainer(std::shared_ptr<QueuingPortHandler> port, std::function<void()> callback,
                    std::chrono::milliseconds timeout, std::function<Clock::time_point()> now = Clock::now);
  /// First ends the port's reception.
  ~SysParamContainer() override;

  SysParamContainer(const SysParamContainer&) = delete;
  SysParamContainer& operator=(const SysParamContainer&) = delete;

  /// The conversions of `sys_param_codec.h`.
  [[nodiscard]] static std::pair<bool, SysParam> to_parameter(const IpcSignal& signal) {
    return quil::to_parameter(signal);
  }
  [[nodiscard]] static IpcSignal to_signal(const SysParam& param) { return quil::to_signal(param); }
  [[nodiscard]] static MessageResult to_message(const SysParam& param) { return quil::to_message(param); }
  [[nodiscard]] static MessageResult to_message(const std::vector<SysParam>& params) {
    return quil::to_message(params);
  }
  [[nodiscard]] static std::optional<Sequence<SysParam>> from_message_all(const tamu::com::Message& msg) {
    return quil::from_message_all(msg);
  }

  /// Collects one parameter of a frame. A frame above the limits is dropped up to its end, and so is one that
  /// would take the copy above them, with one ERROR line; the copy then stays as it is.
  void consume(const IpcSignal& signal) override;
  void finished() override;
  void frame_finished() override;

  /// Takes `incoming` into the copy. Parameters are never removed.
  void merge(std::vector<SysParam> incoming);

  /// Writes the parameters that differ from the copy to the real-time side, which answers with a frame. True
  /// when nothing had to be written or the port accepted the write. `params` may be called several times.
  [[nodiscard]] bool update(const Sequence<SysParam>& params);

  /// All parameters of the copy, in the order of first arrival.
  [[nodiscard]] std::vector<SysParam> get_sysparams() const;
  /// The same as one message, without a copy of the parameters.
  [[nodiscard]] MessageResult all_to_message() const;
  /// The parameter with that identifier, if the copy holds it. Costs nothing for the other parameters.
  [[nodiscard]] std::optional<SysParam> find(std::uint32_t ota_id) const;

  [[nodiscard]] ContainerState get_state();
  /// Whether the copy is about to change: a write awaits its answer, or a frame is being collected.
  [[nodiscard]] bool is_updating();

 private:
  void collect(SysParam param);
  void merge_frame();
  [[nodiscard]] bool has_room_for(const std::vector<SysParam>& incoming) const;
  void settle();
  [[nodiscard]] std::vector<bool> diff(const Sequence<SysParam>& incoming) const;

  // Constant after construction.
  const std::shared_ptr<QueuingPortHandler> m_port;
  const std::function<void()> m_callback;

  // With its own synchronisation.
  State m_state;

  mutable tamu::Mutex m_sysparams_mutex;  // held for no longer than it takes to copy what a call asks for

  // Guarded by m_sysparams_mutex.
  SysParams m_sysparams TAMU_GUARDED_BY(m_sysparams_mutex);

  // Only used by the port's thread.
  SysParams m_frame_params;
  bool m_drop_frame = false;
};

}  // namespace ecu::quil
