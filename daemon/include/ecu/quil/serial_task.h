#pragma once

#include <atomic>
#include <functional>
#include <utility>

namespace ecu::quil {

/// Runs a task once for each request, one run after another. No thread waits for another: the thread of a run
/// also serves the requests that arrive during it. Therefore the task's own state needs no lock, and the last
/// run begins after the last request.
class SerialTask {
 public:
  explicit SerialTask(std::function<void()> task) : m_task(std::move(task)) {}

  /// Runs the task, or leaves that to the thread that is running it. May be called from any thread. An
  /// exception of the task leaves through the request that ran it; the requests left to that thread are
  /// discarded.
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
  std::atomic<unsigned> m_open_requests =
      0;  // the thread that sets it to 1 owns the task until it is 0 again
};

}  // namespace ecu::quil
