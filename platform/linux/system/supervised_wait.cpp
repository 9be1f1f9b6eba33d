#include "system/supervised_wait.h"

#include <poll.h>
#include <signal.h>

#include <optional>

#include <ecu/tamu/signal_mask.h>

#include "posix/timespec.h"
#include "system/supervision.h"
#include "system/watchdog.h"

namespace ecu::tamu {

namespace {

bool has_default_action(int signal_number) {
  struct sigaction action {};
  return ::sigaction(signal_number, nullptr, &action) == 0 && action.sa_handler == SIG_DFL;
}

}  // namespace

void wait_supervised(const posix::Event& event) {
  std::optional<Watchdog> watchdog;
  if (const auto period = watchdog_period()) {
    watchdog.emplace(*period);
  }
  timespec timeout = watchdog ? posix::to_timespec(watchdog->check()) : timespec{};
  const sigset_t mask = mask_without(termination_signals());
  pollfd fd{event.fd(), POLLIN, 0};
  for (;;) {
    const int ready = ::ppoll(&fd, 1, watchdog ? &timeout : nullptr, &mask);
    if (ready > 0) {
      return;
    }
    if (ready == 0) {
      timeout = posix::to_timespec(watchdog->check());
    }
  }
}

void unblock_default_termination() {
  if (has_default_action(SIGINT) && has_default_action(SIGTERM)) {
    unblock_signals(termination_signals());
  }
}

}  // namespace ecu::tamu
