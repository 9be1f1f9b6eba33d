#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/diag/pgn_request_client.h>
#include <ecu/tamu/result.h>

namespace ecu::quil {

/// Asks the vehicle network for the VIN (SAE J1939-21 request for PGN 65260) once per period while the
/// ignition is on, until the run flag is cleared. A notification of the condition variable restarts the
/// period; a change of the ignition counts from the period's end on.
///
/// `init`, `stop` and the destructor are called by one thread at a time, `set_kl15` by any.
class VINRequesterThread {
 public:
  /// Mutex, condition variable and run flag are shared with those who receive the VIN.
  VINRequesterThread(std::shared_ptr<tamu::com::ITransportClient> client, std::shared_ptr<std::mutex> mutex,
                     std::shared_ptr<std::condition_variable> wakeup,
                     std::shared_ptr<std::atomic_bool> running,
                     std::shared_ptr<tamu::diag::PgnRequestClient> pgn_client,
                     std::chrono::milliseconds period);

  /// Ends the thread; takes the subscription to the ignition back.
  ~VINRequesterThread();

  VINRequesterThread(const VINRequesterThread&) = delete;
  VINRequesterThread& operator=(const VINRequesterThread&) = delete;

  /// Subscribes to the ignition, sets the run flag and starts the thread. Without a request to send there is
  /// no thread, the reason having been logged. Ends the process when there is a thread already.
  void init();

  /// Ends the thread at once and joins it; without one it does nothing.
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

  std::shared_ptr<tamu::com::ITransportClient> m_client;
  std::shared_ptr<std::mutex> m_mutex;                // held to wait for m_wakeup
  std::shared_ptr<std::condition_variable> m_wakeup;  // cuts the wait short
  std::shared_ptr<std::atomic_bool> m_running;        // `stop` clears it with m_mutex held, others without
  std::thread m_thread;
  tamu::com::Message m_request;  // constant while there is a thread
  std::shared_ptr<tamu::diag::PgnRequestClient> m_pgn_client;
  std::chrono::milliseconds m_period;
  std::atomic_bool m_kl15 = false;
  std::shared_ptr<tamu::com::ISubscriptionObserver> m_kl15_observer;
};

}  // namespace ecu::quil
