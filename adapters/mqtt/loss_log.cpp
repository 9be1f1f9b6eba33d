#include "mqtt/loss_log.h"

#include <algorithm>

#include "mqtt/mqtt_log.h"

namespace ecu::tamu::com::mqtt {

void LossLog::add(const Loss& loss) {
  {
    const MutexLock lock(mutex_);
    Topic& topic = topics_[loss.filter];
    topic.count += loss.count;
    topic.too_large += loss.too_large;
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

const char* LossLog::cause_of(const Topic& losses) noexcept {
  return losses.too_large == 0              ? "observer too slow"
         : losses.too_large == losses.count ? "message too large"
                                            : "observer too slow or message too large";
}

void LossLog::log_until(Clock::time_point time) {
  const auto next_line = now_() + interval;
  for (auto& [filter, topic] : topics_) {
    if (topic.count > 0 && topic.next_line <= time) {
      mqtt_log.warning(cause_of(topic), ": ", topic.count, " messages dropped on topic ", filter);
      topic = {.next_line = next_line};
    }
  }
}

}  // namespace ecu::tamu::com::mqtt
