#include <pthread.h>

#include <algorithm>
#include <chrono>

#include <ecu/tamu/com/topics.h>

#include "uplink/uplink.h"

namespace ecu::uplink {

namespace topics = tamu::com::topics;

namespace {

constexpr int at_least_once = 1;

// The broker drops messages for a slow client without a word.
constexpr std::chrono::seconds longest_subscription{600};

// How often an unset wall clock is checked.
constexpr std::chrono::seconds clock_period{5};

// A connection to the fleet that finds the clock unset does not wake the timer.
constexpr BootTime longest_pause = std::chrono::minutes(1);

BootTime subscription_period(std::chrono::seconds refresh) {
  return refresh > std::chrono::seconds::zero() ? std::min(refresh, longest_subscription)
                                                : longest_subscription;
}

}  // namespace

// The broker sends all retained values for a new subscription. Waits for the end of the observer's call,
// which locks mutex_.
void Uplink::subscribe() {
  for (const char* const filter : {topics::daemon_presence, topics::all_variables_filter}) {
    bus_->unsubscribe(filter, observer_);
    bus_->subscribe(filter, at_least_once, observer_);
  }
}

// For a message, which is composed again once the clock is set.
std::optional<WallTime> Uplink::wall_time() {
  const std::optional<WallTime> now = wall_clock_();
  if (!now) {
    clock_was_unset_ = true;
  }
  return now;
}

void Uplink::run_timer() {
  ::pthread_setname_np(::pthread_self(), "uplink-timer");
  tamu::MutexLock lock(mutex_);
  while (!is_stopping_) {
    if (subscribe_due_ <= boot_time_now()) {
      subscribe_due_ = boot_time_now() + subscription_period(settings_.limits.refresh);
      lock.unlock();
      subscribe();
      lock.lock();
      continue;
    }
    if (clock_was_unset_ && wall_clock_()) {
      clock_was_unset_ = false;
      filter_.send_all_again();
      if (fleet_) {
        fleet_->publish_connection_time();
      }
    }
    send_due();
    timer_due_ = next_task();
    const BootTime pause = timer_due_ - boot_time_now();
    timer_wake_.wait_until(
        lock, std::chrono::steady_clock::now() + std::clamp(pause, BootTime::zero(), longest_pause));
  }
}

BootTime Uplink::next_task() const {
  const BootTime clock_due = clock_was_unset_ ? boot_time_now() + clock_period : BootTime::max();
  return std::min({subscribe_due_, clock_due, fleet_ ? filter_.next_due() : BootTime::max()});
}

}  // namespace ecu::uplink
