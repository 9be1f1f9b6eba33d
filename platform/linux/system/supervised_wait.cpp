#include "system/supervised_wait.h"

#include <poll.h>

#include <optional>
#include <string>
#include <utility>

#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/signal_mask.h>

#include "system/heartbeat.h"
#include "system/supervision.h"

namespace ecu::tamu {

namespace {

constexpr auto logger = logging::module("tamu.supervision");

using Microseconds = std::chrono::microseconds;

timespec to_timespec(Microseconds time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  return {static_cast<time_t>(seconds.count()),
          static_cast<long>(std::chrono::nanoseconds(time - seconds).count())};
}

class Watchdog {
 public:
  explicit Watchdog(Microseconds period) : period_(period) {}

  /// Returns the time until the next call. A late loop is checked again soon, because the manager waits for
  /// two periods only.
  Microseconds feed() {
    std::string silent = check_heartbeats();
    if (silent.empty()) {
      notify_watchdog();
    } else if (silent != reported_) {
      logger.error("no sign of life for ", period_.count() / 1000, " ms: ", silent);
    }
    reported_ = std::move(silent);
    return reported_.empty() ? period_ : period_ / 8;
  }

 private:
  const Microseconds period_;
  std::string reported_;  // the late loops of the last check
};

}  // namespace

void wait_supervised(const posix::Event& event) {
  std::optional<Watchdog> watchdog;
  if (const auto period = watchdog_period()) {
    watchdog.emplace(*period);
  }
  timespec timeout = to_timespec(watchdog ? watchdog->feed() : Microseconds::zero());
  const sigset_t mask = mask_without(termination_signals());
  pollfd fd{event.fd(), POLLIN, 0};
  for (;;) {
    const int ready = ::ppoll(&fd, 1, watchdog ? &timeout : nullptr, &mask);
    if (ready > 0) {
      return;
    }
    if (ready == 0) {
      timeout = to_timespec(watchdog->feed());
    }
  }
}

}  // namespace ecu::tamu
