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

// The boot time continues while the unit sleeps, which the wait does not.
constexpr BootTime longest_pause = std::chrono::minutes(1);

// From here on, a message must show the new time. The two clocks are not read at the same moment.
constexpr std::chrono::seconds clock_jump{1};

BootTime subscription_period(std::chrono::seconds refresh) {
  return refresh > std::chrono::seconds::zero() ? std::min(refresh, longest_subscription)
                                                : longest_subscription;
}

bool has_jumped(WallTime booted, WallTime now_booted) {
  return std::chrono::abs(now_booted - booted) >= clock_jump;
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

void Uplink::handle_connection() {
  is_newly_connected_ = true;
  timer_wake_.signal();
}

// What was sent without a time gets it once the clock is set. Otherwise a message shows what was true when it
// was sent. Only a connection, which sends it again, can make it wrong; its time, once the clock is set.
void Uplink::correct() {
  const ChangeFilter::Context now = context();
  const bool is_sent_again = is_newly_connected_.exchange(false);
  are_times_old_ = are_times_old_ || is_sent_again;
  filter_.send_again([&](const std::string& key, const ChangeFilter::Context& sent) TAMU_REQUIRES(mutex_) {
    if (key == topics::fleet_daemon) {
      return false;  // a text without a time
    }
    const bool has_wrong_time =
        now.booted && (!sent.booted || (are_times_old_ && has_jumped(*sent.booted, *now.booted)));
    return has_wrong_time || (is_sent_again && sent.daemon != now.daemon);
  });
  if (now.booted) {
    are_times_old_ = false;
    if (fleet_) {
      fleet_->complete_connection_time();
    }
  }
}

void Uplink::run_timer() {
  ::pthread_setname_np(::pthread_self(), "uplink-timer");
  while (!is_stopping_) {
    if (subscription_is_due()) {
      subscribe();
    }
    const BootTime due = run_tasks();
    timer_wake_.wait_for(std::clamp(due - boot_time_now(), BootTime::zero(), longest_pause));
  }
}

bool Uplink::subscription_is_due() {
  const tamu::MutexLock lock(mutex_);
  if (boot_time_now() < subscribe_due_) {
    return false;
  }
  subscribe_due_ = boot_time_now() + subscription_period(settings_.limits.refresh);
  return true;
}

// Returns when the next one is due.
BootTime Uplink::run_tasks() {
  const tamu::MutexLock lock(mutex_);
  if (is_stopping_) {
    return BootTime::max();
  }
  set_unit_if_due();
  correct();
  repair_names();
  send_due();
  timer_due_ = next_task();
  return timer_due_;
}

BootTime Uplink::next_task() const {
  const BootTime clock_due = wall_clock_() ? BootTime::max() : boot_time_now() + clock_period;
  const BootTime unit_due = next_unit_.empty() ? BootTime::max() : next_unit_due_;
  const BootTime link_due = fleet_ ? std::min(repair_due_, filter_.next_due()) : BootTime::max();
  return std::min({subscribe_due_, clock_due, unit_due, link_due});
}

}  // namespace ecu::uplink
