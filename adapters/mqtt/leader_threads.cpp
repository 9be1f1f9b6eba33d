#include "mqtt/leader_threads.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>

#include <array>
#include <system_error>
#include <utility>

#include "mqtt/mqtt_log.h"

namespace ecu::tamu::com::mqtt {

namespace {

// Termination is for the main thread, whatever mask this one inherited. The MQTT library writes to
// connections that the broker may have closed, which must end in an error and not in a signal.
void block_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGPIPE}) {
    sigaddset(&signals, signal);
  }
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace

void LeaderThreads::start() {
  const std::lock_guard lock(mutex_);
  spawn();
}

void LeaderThreads::spawn() {
  threads_.emplace_back([this] { run(); });
}

void LeaderThreads::run() {
  ::pthread_setname_np(::pthread_self(), "mqtt");
  block_signals();
  while (wait_for_lead()) {
    lead_();
  }
}

bool LeaderThreads::wait_for_lead() {
  std::array<pollfd, 2> fds{{{end_.fd(), POLLIN, 0}, {timer_.fd(), POLLIN, 0}}};
  for (;;) {
    {
      const std::lock_guard lock(mutex_);
      if (finished_) {
        return false;
      }
      if (take_lead()) {
        return true;
      }
      ++stand_ins_;
    }
    ::poll(fds.data(), fds.size(), -1);
    const std::lock_guard lock(mutex_);
    --stand_ins_;
  }
}

bool LeaderThreads::take_lead() {
  const bool free = leader_ == std::thread::id();
  if (!free && !(in_calls_ && Clock::now() - calls_since_ >= patience)) {
    return false;
  }
  leader_ = std::this_thread::get_id();
  in_calls_ = false;
  timer_.cancel();
  if (stand_ins_ == 0) {
    try {
      spawn();
    } catch (const std::system_error& failure) {
      mqtt_log.warning("an observer that blocks will hold up the network: ", failure.what());
    }
  }
  return true;
}

void LeaderThreads::begin_calls() {
  const std::lock_guard lock(mutex_);
  in_calls_ = true;
  calls_since_ = Clock::now();
  timer_.set(patience);
}

bool LeaderThreads::leading() const {
  const std::lock_guard lock(mutex_);
  return leader_ == std::this_thread::get_id();
}

bool LeaderThreads::end_calls() {
  const std::lock_guard lock(mutex_);
  if (leader_ != std::this_thread::get_id()) {
    return false;
  }
  in_calls_ = false;
  timer_.cancel();
  return true;
}

void LeaderThreads::finish() {
  const std::lock_guard lock(mutex_);
  finished_ = true;
  end_.signal();
}

void LeaderThreads::join() {
  // A thread may have started another one before it ended.
  for (;;) {
    std::unique_lock lock(mutex_);
    if (threads_.empty()) {
      return;
    }
    std::thread thread = std::move(threads_.back());
    threads_.pop_back();
    lock.unlock();
    thread.join();
  }
}

}  // namespace ecu::tamu::com::mqtt
