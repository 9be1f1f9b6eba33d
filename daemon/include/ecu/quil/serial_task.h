#pragma once

#include <atomic>
#include <functional>
#include <utility>

namespace ecu::quil {

/// Runs a task once for each request, one run after another, and makes no thread wait for another: a request
/// that comes during a run is left to the thread of that run. So the task's own state needs no lock, and the
/// last run begins after the last request was made.
class SerialTask {
 public:
  explicit SerialTask(std::function<void()> task) : m_task(std::move(task)) {}

  /// Runs the task, or leaves it to the thread that is running it. May be called from any thread. What the
  /// task throws leaves through the request that ran it, and takes the requests that it had been left with
  /// along.
  void request() {
    if (m_open_requests.fetch_add(1) > 0) {
      return;
    }
    try {
      do {
        m_task();
      } while (m_open_requests.fetch_sub(1) > 1);
    } catch (...) {
      m_open_requests = 0;
      throw;
    }
  }

 private:
  const std::function<void()> m_task;
  std::atomic<unsigned> m_open_requests = 0;  // the thread that makes it 1 owns the task until it is 0 again
};

}  // namespace ecu::quil
