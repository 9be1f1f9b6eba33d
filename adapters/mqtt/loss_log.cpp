#include "mqtt/loss_log.h"

#include <algorithm>

#include "mqtt/mqtt_log.h"

namespace ecu::tamu::com::mqtt {

void LossLog::add(const Loss& loss) {
  {
    const MutexLock lock(mutex_);
    topics_[loss.filter].count += loss.count;
  }
  log_due();
}

LossLog::Clock::time_point LossLog::due() const {
  const MutexLock lock(mutex_);
  auto earliest = Clock::time_point::max();
  for (const auto& [filter, topic] : topics_) {
    if (topic.count > 0) {
      earliest = std::min(earliest, topic.next_line);
    }
  }
  return earliest;
}

void LossLog::log_due() {
  const MutexLock lock(mutex_);
  if (topics_.empty()) {
    return;
  }
  const auto now = now_();
  log_until(now);
  std::erase_if(
      topics_, [now](const auto& entry) { return entry.second.count == 0 && entry.second.next_line <= now; });
}

void LossLog::log_all() {
  const MutexLock lock(mutex_);
  log_until(Clock::time_point::max());
}

void LossLog::log_until(Clock::time_point time) {
  const auto next_line = now_() + interval;
  for (auto& [filter, topic] : topics_) {
    if (topic.count > 0 && topic.next_line <= time) {
      mqtt_log.warning("observer too slow: ", topic.count, " messages dropped on topic ", filter);
      topic = {0, next_line};
    }
  }
}

}  // namespace ecu::tamu::com::mqtt
