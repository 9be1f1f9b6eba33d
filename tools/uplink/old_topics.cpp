#include "uplink/old_topics.h"

namespace ecu::uplink {

void OldTopics::hold() {
  const tamu::MutexLock lock(mutex_);
  are_held_ = true;
}

void OldTopics::release() {
  const tamu::MutexLock lock(mutex_);
  are_held_ = false;
}

bool OldTopics::add(const std::string& topic) {
  const tamu::MutexLock lock(mutex_);
  if (topics_.size() >= max_topics && !topics_.contains(topic)) {
    return false;
  }
  topics_.insert(topic);
  return true;
}

void OldTopics::remove(const std::string& topic) {
  const tamu::MutexLock lock(mutex_);
  if (!are_held_) {
    topics_.erase(topic);
  }
}

void OldTopics::remove_tree(const std::string& tree) {
  const tamu::MutexLock lock(mutex_);
  std::erase_if(topics_, [&](const std::string& topic) { return topic.starts_with(tree); });
}

std::vector<std::string> OldTopics::all() const {
  const tamu::MutexLock lock(mutex_);
  return {topics_.begin(), topics_.end()};
}

}  // namespace ecu::uplink
