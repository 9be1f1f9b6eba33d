#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include <ecu/quil/queuing_port_handler.h>
#include <ecu/quil/sub_wrapper.h>
#include <ecu/quil/sys_param_container.h>
#include <ecu/tamu/com/transport_client.h>

namespace ecu::quil {

/// The system parameters on the bus: answers requests from the daemon's copy, and hands writes to the
/// real-time side.
class SysParamReqHandler final : public tamu::com::ISubscriptionObserver {
 public:
  /// How long a write to the real-time side may go without an answer.
  static constexpr std::chrono::milliseconds answer_timeout{30000};
  /// How often a request that waits for the copy to settle looks again.
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

  /// Serves one message. A request may block until a write has been answered or its time is over, `stop` ends
  /// that. Called on a delivery thread of the client.
  void message(const std::string& topic, const tamu::com::Message& msg) override;

  /// The value of the top-version parameter; empty, after a WARNING line, when there is none. Does not wait.
  /// May be called from any thread.
  [[nodiscard]] std::string get_top_version() const;

  /// Ends requests where they are: what they still ask for is not answered. May be called from the signal
  /// handler.
  void stop();

 private:
  void answer_chosen(const tamu::com::Message& msg);
  void answer_one(const std::string& text);
  void answer_all();
  void write(const tamu::com::Message& msg);
  [[nodiscard]] bool wait_until_settled();
  [[nodiscard]] bool is_stopped();

  std::shared_ptr<tamu::com::ITransportClient> m_client;
  SysParamContainer m_container;
  std::shared_ptr<SubWrapper> m_observer;
  const std::chrono::milliseconds m_poll_interval;
  std::mutex m_stop_mutex;  // guards m_stopped
  std::condition_variable m_stop_requested;
  bool m_stopped = false;
};

}  // namespace ecu::quil
