#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>

#include <ecu/tamu/thread_safety.h>

namespace ecu::tamu::com::mqtt {

/// Messages on a subscribed topic that were dropped because its queue was full, or because they are too large
/// for it.
struct Loss {
  std::string filter;
  std::uint64_t count;
  std::uint64_t too_large = 0;  // how many of them
};

/// Logs how many messages were dropped: one WARNING line per topic when a burst begins, and at most one per
/// `interval` while it lasts. Each line counts the losses since the previous one; `log_due` writes the last
/// line after the burst. Thread-safe.
class LossLog {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::chrono::seconds interval{5};

  explicit LossLog(std::function<Clock::time_point()> now = Clock::now) : now_(std::move(now)) {}

  /// Counts a loss, and logs what is due. Throws std::bad_alloc; the loss may then be counted, but not logged
  /// yet.
  void add(const Loss& loss);

  /// When `log_due` must be called; `max` when there is nothing to log.
  [[nodiscard]] Clock::time_point due() const;
  /// Logs the topics whose last line is at least `interval` old and that have lost messages since.
  void log_due();

  /// Logs what is left, due or not.
  void log_all();

 private:
  struct Topic {
    std::uint64_t count = 0;      // dropped since the last line
    std::uint64_t too_large = 0;  // of these
    Clock::time_point next_line;  // not before
  };

  static const char* cause_of(const Topic& losses) noexcept;
  void log_until(Clock::time_point time) TAMU_REQUIRES(mutex_);

  // Constant after construction.
  const std::function<Clock::time_point()> now_;

  mutable Mutex mutex_;

  // Guarded by mutex_.
  std::map<std::string, Topic> topics_ TAMU_GUARDED_BY(mutex_);  // those with a line in the last interval
};

}  // namespace ecu::tamu::com::mqtt
