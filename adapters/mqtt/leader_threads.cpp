// The leader starts a timer before its calls, unless it is still running since earlier ones, and does not
// stop it after them: most calls need no system call. The stand-in, the only thread besides the leader that
// waits, sleeps in poll on that timer. When it expires, the stand-in takes the lead if the present calls have
// lasted too long, starts it again for the rest of their time if they have not, and stops it between calls.
// The old leader notices the loss of the lead when its present call returns. It then becomes the stand-in, or
// ends if the new leader has started one meanwhile.
//
// A stand-in is started when calls begin and there is none; until then an old leader has time to return. If
// that fails, the calls may last for ever, so another thread tries again during them (`ensure_relief`). A
// thread that ends leaves its handle in retired_, where the next one joins it, so at most one ended thread
// waits to be joined.

#include "mqtt/leader_threads.h"

#include <poll.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <exception>
#include <utility>

#include <ecu/tamu/signal_mask.h>

#include "mqtt/mqtt_log.h"

namespace ecu::tamu::com::mqtt {

LeaderThreads::LeaderThreads(std::function<void()> lead, std::chrono::microseconds relief_delay,
                             MakeThread make_thread)
    : lead_(std::move(lead)), relief_delay_(relief_delay), make_thread_(std::move(make_thread)) {}

void LeaderThreads::start() {
  const MutexLock lock(mutex_);
  spawn();
  has_stand_in_ = true;  // until it takes the lead, which no thread has yet
}

void LeaderThreads::spawn() {
  threads_.reserve(threads_.size() + 1);
  threads_.push_back(make_thread_([this] { run(); }));
}

void LeaderThreads::ensure_stand_in() {
  if (has_stand_in_ || finished_) {
    return;
  }
  try {
    spawn();
    has_stand_in_ = true;
    stand_in_is_missing_ = false;
  } catch (const std::exception& failure) {
    if (!std::exchange(stand_in_is_missing_, true)) {
      mqtt_log.warning("an observer that blocks will hold up the network: ", failure.what());
    }
  }
}

void LeaderThreads::run() {
  ::pthread_setname_np(::pthread_self(), "mqtt");
  // Termination signals are for the main thread, whatever mask this thread inherited. The MQTT library writes
  // to connections that the broker may have closed, which must cause an error and not a signal.
  block_signals(signal_set(std::array{SIGINT, SIGTERM, SIGPIPE}));
  while (wait_for_lead()) {
    lead_();
    MutexLock lock(mutex_);
    if (has_stand_in_ && !finished_) {
      std::thread previous = retire();
      lock.unlock();
      if (previous.joinable()) {
        previous.join();
      }
      return;
    }
    has_stand_in_ = true;
  }
}

bool LeaderThreads::wait_for_lead() {
  std::array<pollfd, 2> fds{{{end_.fd(), POLLIN, 0}, {timer_.fd(), POLLIN, 0}}};
  for (;;) {
    {
      const MutexLock lock(mutex_);
      if (finished_) {
        return false;
      }
      if (take_lead()) {
        return true;
      }
      set_timer();
    }
    ::poll(fds.data(), fds.size(), -1);
  }
}

bool LeaderThreads::take_lead() {
  const bool free = leader_ == std::thread::id();
  if (!free && !(in_calls_ && Clock::now() - calls_since_ >= relief_delay_)) {
    return false;
  }
  leader_ = std::this_thread::get_id();
  in_calls_ = false;
  has_stand_in_ = false;
  set_timer();
  return true;
}

// To the end of the time that the present calls may last.
void LeaderThreads::set_timer() {
  timer_is_set_ = in_calls_;
  if (in_calls_) {
    constexpr std::chrono::nanoseconds at_once(1);
    timer_.set(std::max<std::chrono::nanoseconds>(calls_since_ + relief_delay_ - Clock::now(), at_once));
  } else {
    timer_.cancel();
  }
}

// Returns the thread that retired before, for the caller to join.
std::thread LeaderThreads::retire() {
  const auto own = std::find_if(threads_.begin(), threads_.end(), [](const std::thread& thread) {
    return thread.get_id() == std::this_thread::get_id();
  });
  if (own == threads_.end()) {
    return {};  // `join` waits for it
  }
  std::thread previous = std::exchange(retired_, std::move(*own));
  threads_.erase(own);
  return previous;
}

void LeaderThreads::begin_calls() {
  const MutexLock lock(mutex_);
  ensure_stand_in();
  in_calls_ = true;
  calls_since_ = Clock::now();
  if (!std::exchange(timer_is_set_, true)) {
    timer_.set(relief_delay_);
  }
}

bool LeaderThreads::leading() const {
  const MutexLock lock(mutex_);
  return leader_ == std::this_thread::get_id();
}

bool LeaderThreads::ensure_relief() {
  const MutexLock lock(mutex_);
  if (in_calls_) {
    ensure_stand_in();
  }
  return !in_calls_ || has_stand_in_;
}

bool LeaderThreads::end_calls() {
  const MutexLock lock(mutex_);
  if (leader_ != std::this_thread::get_id()) {
    return false;
  }
  in_calls_ = false;
  return true;
}

void LeaderThreads::finish() {
  const MutexLock lock(mutex_);
  finished_ = true;
  end_.signal();
}

void LeaderThreads::join() {
  // A thread may have started or retired another one before it ended.
  for (;;) {
    MutexLock lock(mutex_);
    std::thread thread = std::move(retired_);
    if (!thread.joinable() && !threads_.empty()) {
      thread = std::move(threads_.back());
      threads_.pop_back();
    }
    lock.unlock();
    if (!thread.joinable()) {
      return;
    }
    thread.join();
  }
}

}  // namespace ecu::tamu::com::mqtt
