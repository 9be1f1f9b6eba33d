#pragma once

#include <chrono>

#include <ecu/tamu/thread_safety.h>

namespace ecu::uplink {

/// Wakes one thread. A signal that comes before the wait ends it at once, so that none is lost. Holds its
/// lock only for a moment. Thread-safe.
class WakeUp {
 public:
  void signal();
  /// Returns after a signal since the last wait, or after `pause`.
  void wait_for(std::chrono::nanoseconds pause);

 private:
  tamu::Mutex mutex_;
  tamu::ConditionVariable signalled_;
  bool is_signalled_ TAMU_GUARDED_BY(mutex_) = false;
};

}  // namespace ecu::uplink
