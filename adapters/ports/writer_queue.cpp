#include "ports/writer_queue.h"

#include <map>

namespace ecu::tamu::ipc {

std::shared_ptr<WriterQueue> WriterQueue::of(const std::string& path) {
  static std::mutex mutex;  // guards queues
  static std::map<std::string, std::weak_ptr<WriterQueue>> queues;

  const std::lock_guard lock(mutex);
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
  const std::lock_guard lock(queue_.mutex_);
  queue_.places_.push_back(this);
}

WriterQueue::Place::~Place() {
  const std::lock_guard lock(queue_.mutex_);
  std::erase(queue_.places_, this);
  queue_.moved_.notify_all();
}

bool WriterQueue::Place::wait_until(std::chrono::steady_clock::time_point deadline) const {
  std::unique_lock lock(queue_.mutex_);
  return queue_.moved_.wait_until(lock, deadline, [this] { return queue_.places_.front() == this; });
}

}  // namespace ecu::tamu::ipc
