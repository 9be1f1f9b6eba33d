#include "system/supervised_wait.h"

#include <poll.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <optional>

#include <ecu/tamu/signal_mask.h>

#include "system/supervision.h"
#include "system/watchdog.h"

namespace ecu::tamu {

namespace {

using Clock = std::chrono::steady_clock;

// The pause before a notification is attempted again that the service manager had no room for.
constexpr std::chrono::milliseconds notification_pause{250};

timespec to_timespec(std::chrono::nanoseconds time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  return {static_cast<time_t>(seconds.count()),
          static_cast<long>(std::chrono::nanoseconds(time - seconds).count())};
}

bool has_default_action(int signal_number) {
  struct sigaction action {};
  return ::sigaction(signal_number, nullptr, &action) == 0 && action.sa_handler == SIG_DFL;
}

}  // namespace

void wait_supervised(const posix::Event& event) {
  std::optional<Watchdog> watchdog;
  auto check_due = Clock::time_point::max();
  if (const auto period = watchdog_period()) {
    watchdog.emplace(*period);
    check_due = Clock::now();
  }
  const sigset_t mask = mask_without(termination_signals());
  pollfd fd{event.fd(), POLLIN, 0};
  do {
    const auto now = Clock::now();
    if (now >= check_due) {
      check_due = now + watchdog->check();
    }
    const auto due = std::min(check_due, notify_again() ? check_due : now + notification_pause);
    const timespec timeout = to_timespec(std::max(due - Clock::now(), Clock::duration::zero()));
    fd.revents = 0;
    (void)::ppoll(&fd, 1, due == Clock::time_point::max() ? nullptr : &timeout, &mask);
  } while (fd.revents == 0);
}

void unblock_default_termination() {
  if (has_default_action(SIGINT) && has_default_action(SIGTERM)) {
    unblock_signals(termination_signals());
  }
}

}  // namespace ecu::tamu
