#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

namespace ecu::tamu::ipc {

/// Lets the writers of one port within this process at it one after another, in the order in which they came:
/// one with many records cannot keep the others waiting for longer than a record takes. May be used from any
/// thread.
class WriterQueue {
 public:
  /// The queue of the port at `path`: one for the whole process as long as anybody holds it.
  [[nodiscard]] static std::shared_ptr<WriterQueue> of(const std::string& path);

  /// A place in the queue, which is left when this goes.
  class Place {
   public:
    explicit Place(WriterQueue& queue);
    ~Place();
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    /// Waits for its turn; false when that has not come by the deadline.
    [[nodiscard]] bool wait_until(std::chrono::steady_clock::time_point deadline) const;

   private:
    WriterQueue& queue_;
  };

 private:
  std::mutex mutex_;  // guards places_
  std::condition_variable moved_;
  std::deque<const Place*> places_;  // the first has its turn
};

}  // namespace ecu::tamu::ipc
