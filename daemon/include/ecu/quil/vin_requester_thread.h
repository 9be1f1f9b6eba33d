#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/diag/pgn_request_client.h>
#include <ecu/tamu/result.h>

namespace ecu::quil {

/// Requests the VIN from the vehicle network (SAE J1939-21 request for PGN 65260) once per period while the
/// ignition is on, until the run flag is cleared. A notification of the condition variable restarts the
/// period; a change of the ignition takes effect at the end of the period.
///
/// One thread at a time calls `init`, `stop` and the destructor; any thread may call `set_kl15`.
class VINRequesterThread {
 public:
  using Clock = std::chrono::steady_clock;

  /// Mutex, condition variable and run flag are shared with the variables that receive the VIN. The period is
  /// `wait_seconds` of `now`, which returns the time; the thread calls it with the mutex held.
  VINRequesterThread(std::shared_ptr<tamu::com::ITransportClient> client, std::shared_ptr<std::mutex> mutex,
                     std::shared_ptr<std::condition_variable> wakeup,
                     std::shared_ptr<std::atomic_bool> running,
                     std::shared_ptr<tamu::diag::PgnRequestClient> pgn_client, unsigned int wait_seconds,
                     std::function<Clock::time_point()> now = Clock::now);

  /// Ends the thread and unsubscribes from the ignition.
  ~VINRequesterThread();

  VINRequesterThread(const VINRequesterThread&) = delete;
  VINRequesterThread& operator=(const VINRequesterThread&) = delete;

  /// Subscribes to the ignition, sets the run flag and starts the thread. When the request cannot be built
  /// (ERROR lines), no thread is started. A second call ends the process.
  void init();

  /// Ends the thread at once and joins it; does nothing without a thread.
  void stop();

  /// Stores whether the ignition (terminal 15) is on.
  void set_kl15(bool on);

 private:
  void vin_requester();
  [[nodiscard]] bool is_wait_for_vin_timeout();
  [[nodiscard]] bool send_pgn_request_for_VIN();
  [[nodiscard]] bool create_pgn_request_token(const std::string& topic);
  /// The request, or why there is none.
  [[nodiscard]] static tamu::Result<tamu::com::Message, std::string> build_rqst_msg_payload();

  // Constant after construction; what the pointers refer to is shared with the VIN variables.
  const std::shared_ptr<tamu::com::ITransportClient> m_client;
  const std::shared_ptr<std::mutex> m_mutex;                // held to wait for m_wakeup
  const std::shared_ptr<std::condition_variable> m_wakeup;  // cuts the wait short
  const std::shared_ptr<std::atomic_bool> m_running;  // `stop` clears it with m_mutex held, others without
  const std::shared_ptr<tamu::diag::PgnRequestClient> m_pgn_client;
  const unsigned int m_wait_seconds;
  const std::function<Clock::time_point()> m_now;

  // With its own synchronisation.
  std::atomic_bool m_kl15 = false;

  // Set by `init`; m_request and m_kl15_observer are constant while there is a thread.
  std::thread m_thread;
  tamu::com::Message m_request;
  std::shared_ptr<tamu::com::ISubscriptionObserver> m_kl15_observer;
};

}  // namespace ecu::quil
