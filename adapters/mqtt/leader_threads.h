#pragma once

#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include <ecu/tamu/thread_safety.h>

#include "posix/event.h"

namespace ecu::tamu::com::mqtt {

/// A group of threads. One of them leads: it runs the network and calls the observers itself, so that a
/// message does not change threads on its way. A leader whose calls last too long is relieved: the stand-in
/// takes the lead, and the old leader becomes the stand-in or ends when its calls are over. There are never
/// more threads than the leader, one stand-in, and those inside calls.
class LeaderThreads {
 public:
  using MakeThread = std::function<std::thread(std::function<void()>)>;

  /// The thread that takes the lead calls `lead`, which must not throw. `lead` returns when it has lost the
  /// lead or has called `finish`. A leader is relieved when its calls last for `relief_delay`. `make_thread`
  /// may throw whatever std::thread does.
  explicit LeaderThreads(
      std::function<void()> lead, std::chrono::microseconds relief_delay = std::chrono::milliseconds(2),
      MakeThread make_thread = [](const std::function<void()>& body) { return std::thread(body); });
  ~LeaderThreads() { join(); }

  LeaderThreads(const LeaderThreads&) = delete;
  LeaderThreads& operator=(const LeaderThreads&) = delete;

  /// Starts the first leader. Throws std::system_error or std::bad_alloc when no thread can be created.
  void start();

  /// The leader is about to call observers. Without a stand-in it keeps the lead until its calls are over,
  /// however long they wait. This function and `ensure_relief` try to start a missing stand-in.
  void begin_calls();
  /// Whether the calling thread still leads; false once it has been relieved.
  [[nodiscard]] bool leading() const;
  /// While the leader is inside calls, tries to start a missing stand-in; false if there is still none to
  /// relieve it. Any thread; returns at once.
  [[nodiscard]] bool ensure_relief();
  /// The leader has called the observers. False when it was relieved meanwhile.
  [[nodiscard]] bool end_calls();

  /// Ends the threads, each as soon as it has left its calls. Called by the leader.
  void finish();
  /// Waits until every thread has ended. After `start`, needs a `finish`.
  void join();

 private:
  using Clock = std::chrono::steady_clock;

  void spawn() TAMU_REQUIRES(mutex_);
  void ensure_stand_in() TAMU_REQUIRES(mutex_);
  void run();
  [[nodiscard]] bool wait_for_lead();
  [[nodiscard]] bool take_lead() TAMU_REQUIRES(mutex_);
  void set_timer() TAMU_REQUIRES(mutex_);
  [[nodiscard]] std::thread retire() TAMU_REQUIRES(mutex_);

  // Constant after construction.
  const std::function<void()> lead_;
  const std::chrono::microseconds relief_delay_;
  const MakeThread make_thread_;

  // With their own synchronisation.
  const posix::Timer timer_;  // expires when the leader must be relieved, or earlier
  const posix::Event end_;

  mutable Mutex mutex_;

  // Guarded by mutex_.
  std::thread::id leader_ TAMU_GUARDED_BY(mutex_);  // no thread's before the first one leads
  bool in_calls_ TAMU_GUARDED_BY(mutex_) = false;
  Clock::time_point calls_since_ TAMU_GUARDED_BY(mutex_);
  bool timer_is_set_ TAMU_GUARDED_BY(mutex_) = false;
  bool finished_ TAMU_GUARDED_BY(mutex_) = false;
  bool has_stand_in_ TAMU_GUARDED_BY(mutex_) = false;         // started, but may not wait yet
  bool stand_in_is_missing_ TAMU_GUARDED_BY(mutex_) = false;  // has been logged
  std::vector<std::thread> threads_ TAMU_GUARDED_BY(mutex_);
  std::thread retired_ TAMU_GUARDED_BY(mutex_);  // the next one to end joins it
};

}  // namespace ecu::tamu::com::mqtt
