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

/// The VIN of each reception: its letters, digits, dashes, underscores and dots, with their case; other
/// characters are dropped. A reception without any of these characters is ignored. The sender's byte count
/// limits the data; it may exceed what was received.
class VinVariable : public EnvironmentVariable {
 public:
  VinVariable(const std::string& name, const std::string& topic);
  bool extract(const tamu::com::Message& msg) override;

 protected:
  std::string m_data_signal = "data";  // the signal that carries the VIN
  std::string m_prev_msg;              // the VIN that is being confirmed
  std::string m_last_vin;              // the VIN of the last accepted reception
};

/// The VIN that the control unit with one source address sends, published once it has arrived often enough in
/// a row. Until then only `value` returns it.
///
/// Shares a mutex, a condition variable and a run flag with the `VINRequesterThread`: each accepted reception
/// notifies the thread, and a confirmed VIN ends it.
class VinVariableJ1939Ecu final : public VinVariable {
 public:
  /// `topic_suffix` is the source address in two hexadecimal digits. `confirm_required` is the number of
  /// identical receptions in a row that confirm a VIN; 0 and 1 count as 2.
  VinVariableJ1939Ecu(const std::string& topic_suffix, std::shared_ptr<std::mutex> mutex,
                      std::shared_ptr<std::condition_variable> condition,
                      std::shared_ptr<std::atomic_bool> requester_running, std::uint32_t confirm_required);

  /// True when this reception confirms the VIN, which also restarts the count. Throws std::system_error
  /// (operation not permitted) when there is no mutex.
  bool extract(const tamu::com::Message& msg) override;

 private:
  void notify_requester() const;

  // Constant after construction; what the pointers refer to is shared with the requester.
  const std::shared_ptr<std::mutex> m_mutex;
  const std::shared_ptr<std::condition_variable> m_condition;  // notified with m_mutex held
  const std::shared_ptr<std::atomic_bool> m_requester_running;
  const std::uint32_t m_confirm_required;

  // With its own synchronisation.
  std::atomic<std::uint32_t> m_confirm_count = 0;
};

}  // namespace ecu::quil
