#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <utility>

namespace ecu::tamu {

/// Registers a loop that the watchdog supervises. The loop's thread calls `beat` each time round. A loop that
/// sleeps without a time-out while it is idle goes round once after `prod`, so that it can show at any time
/// that it is alive. Nothing is prodded in a process that the service manager does not watch.
class Heartbeat {
 public:
  /// `name` stands in the log line about a loop that no longer goes round. `prod` is called by another
  /// thread: it must return at once, throw nothing and use no other heartbeat. An example is signalling an
  /// event.
  Heartbeat(std::string name, std::function<void()> prod);
  /// `prod` is not called after this.
  ~Heartbeat();

  Heartbeat(const Heartbeat&) = delete;
  Heartbeat& operator=(const Heartbeat&) = delete;

  /// The loop goes round. Any thread.
  void beat() noexcept { beaten_ = true; }

 private:
  friend std::string check_heartbeats();

  const std::string name_;
  const std::function<void()> prod_;
  std::atomic<bool> beaten_ = true;  // since the last check; a new loop has not been prodded yet
};

/// The names of the loops that have not gone round since the previous call, separated by ", "; empty when all
/// have. Prods every loop for the next call. One thread.
[[nodiscard]] std::string check_heartbeats();

}  // namespace ecu::tamu
