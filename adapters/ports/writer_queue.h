#pragma once

#include <chrono>
#include <deque>
#include <memory>
#include <string>

#include <ecu/tamu/thread_safety.h>

namespace ecu::tamu::ipc {

/// Gives the writers of one port within this process access one after another, in the order of arrival: a
/// writer of many records delays each of the others by one record at most. Thread-safe.
class WriterQueue {
 public:
  /// The queue of the port at `path`: the same for the whole process as long as a pointer to it exists.
  [[nodiscard]] static std::shared_ptr<WriterQueue> of(const std::string& path);

  /// A place in the queue, from construction to destruction.
  class Place {
   public:
    explicit Place(WriterQueue& queue);
    ~Place();
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    /// Waits for this place's turn; false when the deadline passes first.
    [[nodiscard]] bool wait_until(std::chrono::steady_clock::time_point deadline) const;

   private:
    WriterQueue& queue_;
  };

 private:
  // With its own synchronisation.
  ConditionVariable moved_;  // waited for with mutex_

  Mutex mutex_;

  // Guarded by mutex_.
  std::deque<const Place*> places_ TAMU_GUARDED_BY(mutex_);  // the first has its turn
};

}  // namespace ecu::tamu::ipc
