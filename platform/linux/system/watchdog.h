#pragma once

#include <chrono>
#include <string>

namespace ecu::tamu {

/// Notifies the service manager's watchdog as long as every supervised loop completes its cycles. Not
/// thread-safe.
class Watchdog {
 public:
  explicit Watchdog(std::chrono::microseconds period) : period_(period) {}

  /// Sends `WATCHDOG=1` if every loop has completed a cycle since the last call; otherwise logs the stalled
  /// loops if they are not those of the last line. Returns when to call this again: after the period, or
  /// sooner while a loop is late or the manager's socket is full, because the manager waits for two periods
  /// only.
  [[nodiscard]] std::chrono::microseconds check();

 private:
  const std::chrono::microseconds period_;
  std::string reported_;  // the loops that the last check found silent
};

}  // namespace ecu::tamu
