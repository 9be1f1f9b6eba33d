#pragma once

#include <chrono>
#include <functional>

#include <ecu/tamu/thread_safety.h>

namespace ecu::quil {

/// What the daemon's copy of the system parameters is doing. The numbers appear in the log.
enum class ContainerState : int {
  EMPTY = 0,      // nothing received yet
  SYNCED = 1,     // the copy holds what was last sent
  UPDATING = 2,   // a write awaits its answer
  RECEIVING = 3,  // a frame is being collected
};

/// A `ContainerState` in which UPDATING has a time limit. May be used from any thread.
class TimedContainerState {
 public:
  using Clock = std::chrono::steady_clock;

  /// `timeout` is how long UPDATING may last; `now` returns the time.
  TimedContainerState(std::chrono::milliseconds timeout, std::function<Clock::time_point()> now);

  /// UPDATING restarts the time limit and remembers the state before it.
  void set(ContainerState state);

  /// The state. If the time limit of UPDATING has passed, first goes back to the state before it, with one
  /// ERROR line.
  [[nodiscard]] ContainerState get();

 private:
  // Constant after construction.
  const std::chrono::milliseconds m_timeout;
  const std::function<Clock::time_point()> m_now;

  tamu::Mutex m_mutex;

  // Guarded by m_mutex.
  ContainerState m_current TAMU_GUARDED_BY(m_mutex) = ContainerState::EMPTY;
  ContainerState m_previous TAMU_GUARDED_BY(m_mutex) = ContainerState::EMPTY;
  Clock::time_point m_deadline TAMU_GUARDED_BY(m_mutex);
};

}  // namespace ecu::quil
