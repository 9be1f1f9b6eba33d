#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "posix/event.h"

namespace ecu::tamu::com::mqtt {

/// Threads of which one leads, that is, runs the network and calls the observers itself, so that a message
/// changes no thread on its way. A leader whose calls last is relieved: a stand-in takes the lead, the old
/// leader finishes its call and becomes a stand-in. Stand-ins sleep until a timer wakes them, which runs only
/// while the leader is inside calls. There is always one more thread than observers that block.
class LeaderThreads {
 public:
  /// How long the leader's calls may last before it is relieved.
  static constexpr std::chrono::milliseconds patience{2};

  /// `lead` is called by the thread that takes the lead. It returns when it has lost the lead or
  /// has called `finish`.
  explicit LeaderThreads(std::function<void()> lead) : lead_(std::move(lead)) {}
  ~LeaderThreads() { join(); }

  LeaderThreads(const LeaderThreads&) = delete;
  LeaderThreads& operator=(const LeaderThreads&) = delete;

  /// Starts the first leader. Throws std::system_error when no thread can be had.
  void start();

  /// The leader is about to call observers.
  void begin_calls();
  /// Whether the calling thread still leads; false once it has been relieved.
  [[nodiscard]] bool leading() const;
  /// The leader has called the observers. False when it was relieved meanwhile.
  [[nodiscard]] bool end_calls();

  /// Ends the threads, each when it is out of its calls. Called by the leader.
  void finish();
  /// Waits until every thread has ended. Needs `finish`, if there was a `start`.
  void join();

 private:
  using Clock = std::chrono::steady_clock;

  void spawn();
  void run();
  [[nodiscard]] bool wait_for_lead();
  [[nodiscard]] bool take_lead();

  const std::function<void()> lead_;
  const posix::Timer timer_;  // runs out when the leader is to be relieved
  const posix::Event end_;

  mutable std::mutex mutex_;  // guards all below
  std::thread::id leader_;    // nobody's before the first thread has taken the lead
  bool in_calls_ = false;
  Clock::time_point calls_since_;
  bool finished_ = false;
  int stand_ins_ = 0;
  std::vector<std::thread> threads_;
};

}  // namespace ecu::tamu::com::mqtt
