#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <optional>
#include <stop_token>
#include <utility>

#include <ecu/tamu/thread_safety.h>

namespace ecu::sim {

/// A queue that releases each item after its delay, in the order of insertion. Any thread may push, one
/// thread pops.
template <class T>
class DelayQueue {
 public:
  void push(T item, std::chrono::milliseconds delay) {
    const tamu::MutexLock lock(mutex_);
    entries_.push_back({Clock::now() + delay, std::move(item)});
    changed_.notify_one();
  }

  /// Waits for the next item; nothing when `stop` is requested.
  std::optional<T> pop(const std::stop_token& stop) {
    tamu::MutexLock lock(mutex_);
    changed_.wait(lock, stop, [this]() TAMU_REQUIRES(mutex_) { return !entries_.empty(); });
    if (!stop.stop_requested()) {
      const Clock::time_point due = entries_.front().due;
      changed_.wait_until(lock, stop, due, [] { return false; });
    }
    if (stop.stop_requested()) {
      return std::nullopt;
    }
    T item = std::move(entries_.front().item);
    entries_.pop_front();
    return item;
  }

 private:
  using Clock = std::chrono::steady_clock;

  struct Entry {
    Clock::time_point due;
    T item;
  };

  // With its own synchronisation.
  std::condition_variable_any changed_;  // waited for with mutex_

  tamu::Mutex mutex_;

  // Guarded by mutex_.
  std::deque<Entry> entries_ TAMU_GUARDED_BY(mutex_);
};

}  // namespace ecu::sim
