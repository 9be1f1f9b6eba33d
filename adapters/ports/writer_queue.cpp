#include "ports/writer_queue.h"

#include <map>

namespace ecu::tamu::ipc {

std::shared_ptr<WriterQueue> WriterQueue::of(const std::string& path) {
  static Mutex mutex;
  static std::map<std::string, std::weak_ptr<WriterQueue>> queues TAMU_GUARDED_BY(mutex);

  const MutexLock lock(mutex);
  std::erase_if(queues, [](const auto& entry) { return entry.second.expired(); });
  std::weak_ptr<WriterQueue>& known = queues[path];
  std::shared_ptr<WriterQueue> queue = known.lock();
  if (!queue) {
    queue = std::make_shared<WriterQueue>();
    known = queue;
  }
  return queue;
}

WriterQueue::Place::Place(WriterQueue& queue) : queue_(queue) {
  const MutexLock lock(queue_.mutex_);
  queue_.places_.push_back(this);
}

WriterQueue::Place::~Place() {
  const MutexLock lock(queue_.mutex_);
  std::erase(queue_.places_, this);
  queue_.moved_.notify_all();
}

bool WriterQueue::Place::wait_until(std::chrono::steady_clock::time_point deadline) const {
  MutexLock lock(queue_.mutex_);
  return queue_.moved_.wait_until(
      lock, deadline, [this]() TAMU_REQUIRES(queue_.mutex_) { return queue_.places_.front() == this; });
}

}  // namespace ecu::tamu::ipc
