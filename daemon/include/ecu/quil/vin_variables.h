#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include <ecu/quil/environment_variable.h>

/// The vehicle identification number (SAE J1939-71, PGN 65260) as the vehicle's control units send it.
namespace ecu::quil {

/// The letters, digits, dashes, underscores and dots of each reception, case kept; anything else is dropped.
/// A reception that leaves nothing is ignored. The sender's byte count says how much of the data counts; of
/// data that is shorter, all.
class VinVariable : public EnvironmentVariable {
 public:
  VinVariable(const std::string& name, const std::string& topic);
  bool extract(const tamu::com::Message& msg) override;
};

/// The VIN that the control unit with one source address sends, to be published once it came often enough in
/// a row. Until then `value` already holds it.
///
/// Shares a mutex, a condition variable and a run flag with the `VINRequesterThread`: each reception notifies
/// it, and a confirmed VIN ends it.
class VinVariableJ1939Ecu final : public VinVariable {
 public:
  /// `topic_suffix` is the source address, two hexadecimal digits. `confirm_required` is the number of
  /// identical receptions in a row that confirm a VIN, at least 2 whatever is given.
  VinVariableJ1939Ecu(const std::string& topic_suffix, std::shared_ptr<std::mutex> mutex,
                      std::shared_ptr<std::condition_variable> condition,
                      std::shared_ptr<std::atomic_bool> requester_running, std::uint32_t confirm_required);

  /// True when this reception confirms the VIN; counting then starts anew. Throws std::system_error,
  /// operation not permitted, when there is no mutex.
  bool extract(const tamu::com::Message& msg) override;

 private:
  void notify_requester() const;

  std::shared_ptr<std::mutex> m_mutex;
  std::shared_ptr<std::condition_variable> m_condition;  // notified with m_mutex held
  std::shared_ptr<std::atomic_bool> m_requester_running;
  std::string m_prev_msg;  // the VIN that is being counted
  std::atomic<std::uint32_t> m_confirm_count = 0;
  std::uint32_t m_confirm_required;
};

}  // namespace ecu::quil
