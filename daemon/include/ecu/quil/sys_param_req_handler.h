#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include <ecu/quil/queuing_port_handler.h>
#include <ecu/quil/sub_wrapper.h>
#include <ecu/quil/sys_param_container.h>
#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/thread_safety.h>

namespace ecu::quil {

/// The system parameters on the bus: answers requests from the daemon's copy, and passes writes to the
/// real-time side.
class SysParamReqHandler final : public tamu::com::ISubscriptionObserver {
 public:
  /// How long the daemon waits for the answer to a write.
  static constexpr std::chrono::milliseconds answer_timeout{30000};
  /// How often a request checks whether a change of the copy has ended.
  static constexpr std::chrono::milliseconds poll_interval{500};

  /// Subscribes to the request and write topics. `callback` is called on the port's thread after each frame
  /// of parameters.
  SysParamReqHandler(std::shared_ptr<tamu::com::ITransportClient> client,
                     std::shared_ptr<QueuingPortHandler> port, std::function<void()> callback,
                     std::chrono::milliseconds timeout = answer_timeout,
                     std::chrono::milliseconds poll = poll_interval);
  ~SysParamReqHandler() override;

  SysParamReqHandler(const SysParamReqHandler&) = delete;
  SysParamReqHandler& operator=(const SysParamReqHandler&) = delete;

  /// Serves one message. A request may block until a write has been answered or has timed out; `stop` ends
  /// the wait. Called on a delivery thread of the client.
  void message(const std::string& topic, const tamu::com::Message& msg) override;

  /// The value of the top-version parameter; if there is none, logs a WARNING line and returns an empty text.
  /// Does not wait for a write or a frame. May be called from any thread.
  [[nodiscard]] std::string get_top_version() const;

  /// Ends the requests in progress without further answers. May be called from the signal handler.
  void stop();

 private:
  void answer_chosen(const tamu::com::Message& msg);
  void answer_one(const std::string& text);
  void answer_all();
  void write(const tamu::com::Message& msg);
  [[nodiscard]] bool wait_until_settled();
  [[nodiscard]] bool is_stopped();

  // Constant after construction.
  const std::shared_ptr<tamu::com::ITransportClient> m_client;

  // With its own synchronisation.
  SysParamContainer m_container;

  // Constant after construction.
  const std::shared_ptr<SubWrapper> m_observer;
  const std::chrono::milliseconds m_poll_interval;

  tamu::Mutex m_stop_mutex;
  tamu::ConditionVariable m_stop_requested;

  // Guarded by m_stop_mutex.
  bool m_stopped TAMU_GUARDED_BY(m_stop_mutex) = false;
};

}  // namespace ecu::quil
