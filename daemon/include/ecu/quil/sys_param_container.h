#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <ecu/quil/queuing_port_handler.h>
#include <ecu/tamu/com/framing.h>
#include <ecu/tamu/com/message.h>
#include <ecu/tamu/result.h>

namespace ecu::quil {

/// The daemon's copy of the system parameters that the real-time side keeps: collects the records of a frame,
/// merges them at its end, and writes changed values back. Records come on the port's thread; everything else
/// may be called from any thread and never waits for a frame.
class SysParamContainer final : public tamu::ipc::IDataConsumer<tamu::ipc::IpcSignal> {
 public:
  using IpcSignal = tamu::ipc::IpcSignal;
  using Clock = std::chrono::steady_clock;

  struct SysParam {
    std::uint32_t ota_id = 0;
    std::string payload;  // any bytes

    friend bool operator==(const SysParam&, const SysParam&) = default;
  };

  /// The parameters in the order of first arrival, each identifier once.
  class SysParams {
   public:
    /// Replaces the payload of the parameter with that identifier, or appends the parameter.
    void put(SysParam param);
    /// The parameter with that identifier; null when there is none.
    [[nodiscard]] const SysParam* find(std::uint32_t ota_id) const;
    [[nodiscard]] const std::vector<SysParam>& all() const noexcept { return m_params; }
    [[nodiscard]] bool empty() const noexcept { return m_params.empty(); }
    void clear();

   private:
    std::vector<SysParam> m_params;
    std::unordered_map<std::uint32_t, std::size_t> m_index;  // of m_params, by identifier
  };

  enum class ContainerState : int {
    EMPTY = 0,      // nothing received yet
    SYNCED = 1,     // the copy holds what was last sent
    UPDATING = 2,   // a write awaits its answer
    RECEIVING = 3,  // a frame is being collected
  };

  /// The container's state; safe to use from any thread.
  class State {
   public:
    /// `timeout` is how long UPDATING may last; `now` tells the time.
    State(std::chrono::milliseconds timeout, std::function<Clock::time_point()> now);

    /// UPDATING begins its time anew and remembers the state before it.
    void set(ContainerState state);
    /// The state, after an UPDATING whose time is over fell back to the state before it (one ERROR line).
    [[nodiscard]] ContainerState get();

   private:
    const std::chrono::milliseconds m_timeout;
    const std::function<Clock::time_point()> m_now;
    std::mutex m_mutex;  // guards all below
    ContainerState m_current = ContainerState::EMPTY;
    ContainerState m_previous = ContainerState::EMPTY;
    Clock::time_point m_deadline;
  };

  /// A framed message, or the adapter's error code.
  using MessageResult = tamu::Result<tamu::com::Message, int>;

  /// Registers at `port`. `callback` is called on the port's thread after each merged frame; it may be empty.
  SysParamContainer(std::shared_ptr<QueuingPortHandler> port, std::function<void()> callback,
                    std::chrono::milliseconds timeout, std::function<Clock::time_point()> now = Clock::now);
  /// Ends the port's reception first.
  ~SysParamContainer() override;

  SysParamContainer(const SysParamContainer&) = delete;
  SysParamContainer& operator=(const SysParamContainer&) = delete;

  /// A record's payload is the identifier, the length of the value (both 32 bits, little-endian), and the
  /// value. The length is not looked at: the value goes to the record's end. The flag is false, after an
  /// ERROR line, for a record without a whole identifier.
  [[nodiscard]] static std::pair<bool, SysParam> to_parameter(const IpcSignal& signal);
  [[nodiscard]] static IpcSignal to_signal(const SysParam& param);

  void consume(const IpcSignal& signal) override;
  void finished() override;
  void frame_finished() override;

  /// Those of `incoming` that the copy does not hold with the same value, in their order.
  [[nodiscard]] std::vector<SysParam> diff(const std::vector<SysParam>& incoming) const;
  /// Takes `incoming` over into the copy. Parameters are never removed.
  void merge(const std::vector<SysParam>& incoming);

  /// Writes the parameters that differ from the copy to the real-time side, which answers with a frame. True
  /// when there was nothing to write or the port took it.
  [[nodiscard]] bool update(std::vector<SysParam>&& params);

  /// The copy as it stands now. Later frames do not change what was returned.
  [[nodiscard]] std::shared_ptr<const SysParams> get_sysparams() const;

  [[nodiscard]] ContainerState get_state();
  /// Whether the copy is about to change: a write awaits its answer, or a frame is being collected.
  [[nodiscard]] bool is_updating();

  /// One `SystemParameterEntry`, or one `SystemParameterList`, with identifiers and values.
  [[nodiscard]] static MessageResult to_message(const SysParam& param);
  [[nodiscard]] static MessageResult to_message(const std::vector<SysParam>& params);

  /// Appends the parameters of a `SystemParameterList` to `out`; false after an ERROR line.
  [[nodiscard]] static bool from_message_all(const tamu::com::Message& msg, std::vector<SysParam>& out);

 private:
  std::shared_ptr<QueuingPortHandler> m_port;
  mutable std::mutex m_sysparams_mutex;  // guards the pointer; what it points to never changes
  std::shared_ptr<const SysParams> m_sysparams;
  std::function<void()> m_callback;
  SysParams m_frame_params;  // of the port's thread
  State m_state;
};

}  // namespace ecu::quil
