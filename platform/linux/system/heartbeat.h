#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <utility>

namespace ecu::tamu {

/// Registers a loop that the watchdog supervises. The loop's thread calls `beat` in each cycle. An idle loop
/// that sleeps without a time limit must complete one cycle after each `wake_up`, to show that it is alive.
/// Loops are not woken in a process that the service manager does not watch.
class Heartbeat {
 public:
  /// `name` appears in the log line about a loop that hangs. `wake_up` is called by another thread: it must
  /// return at once, throw nothing and use no other heartbeat. An example is signalling an event.
  Heartbeat(std::string name, std::function<void()> wake_up);
  /// `wake_up` is not called after this.
  ~Heartbeat();

  Heartbeat(const Heartbeat&) = delete;
  Heartbeat& operator=(const Heartbeat&) = delete;

  /// Reports that the loop is alive. May be called from any thread.
  void beat() noexcept { beaten_ = true; }

 private:
  friend std::string check_heartbeats();

  const std::string name_;
  const std::function<void()> wake_up_;
  // Since the last check; true at first, because a new loop has not been woken yet.
  std::atomic<bool> beaten_ = true;
};

/// The names of the loops without a beat since the previous call, separated by ", "; empty when there are
/// none. Wakes every loop for the next call. Not thread-safe.
[[nodiscard]] std::string check_heartbeats();

}  // namespace ecu::tamu
