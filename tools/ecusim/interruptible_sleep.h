#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stop_token>

namespace ecu::sim {

/// Sleeps until `when` or until `stop` is requested; true when `when` has been reached.
inline bool sleep_until(const std::stop_token& stop, std::chrono::steady_clock::time_point when) {
  std::mutex mutex;
  std::condition_variable_any wakeup;
  std::unique_lock lock(mutex);
  wakeup.wait_until(lock, stop, when, [] { return false; });
  return !stop.stop_requested();
}

}  // namespace ecu::sim
