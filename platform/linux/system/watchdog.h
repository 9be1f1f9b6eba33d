#pragma once

#include <chrono>
#include <string>

namespace ecu::tamu {

/// Feeds the service manager's watchdog while every `Heartbeat` goes round. Used by one thread at a time.
class Watchdog {
 public:
  explicit Watchdog(std::chrono::microseconds period) : period_(period) {}

  /// Sends `WATCHDOG=1` if every loop has gone round since the last call; otherwise logs the silent ones when
  /// they have changed. Returns when to call this again: after the period, or sooner while a loop is late, as
  /// the manager waits for two periods only.
  [[nodiscard]] std::chrono::microseconds feed();

 private:
  const std::chrono::microseconds period_;
  std::string reported_;  // the loops that the last check found silent
};

}  // namespace ecu::tamu
