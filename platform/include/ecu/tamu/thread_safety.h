#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

/// A mutex, its lock and a condition variable for Clang's thread-safety analysis, which checks at compile
/// time (-Wthread-safety, the `clang` preset) that the mutex is held. For other compilers the macros are
/// empty. A member declared `int count_ TAMU_GUARDED_BY(mutex_);` may be used only with `mutex_` held, and a
/// function declared `void add() TAMU_REQUIRES(mutex_);` may be called only with it held.
///
/// The analysis examines each lambda separately. A predicate that reads guarded members declares it, too:
/// `[this]() TAMU_REQUIRES(mutex_) { return count_ > 0; }`.

#if defined(__clang__)
#define TAMU_THREAD_ANNOTATION(annotation) __attribute__((annotation))
#else
#define TAMU_THREAD_ANNOTATION(annotation)
#endif

/// The variable is read and written with the mutex held.
#define TAMU_GUARDED_BY(mutex) TAMU_THREAD_ANNOTATION(guarded_by(mutex))
/// The caller of the function holds the mutex, or must not hold it.
#define TAMU_REQUIRES(...) TAMU_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define TAMU_EXCLUDES(...) TAMU_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
/// The caller of the function holds the mutex, and no longer does afterwards.
#define TAMU_RELEASE(...) TAMU_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
/// For a correct function that the analysis cannot follow; add a comment with the reason.
#define TAMU_NO_THREAD_SAFETY_ANALYSIS TAMU_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace ecu::tamu {

class TAMU_THREAD_ANNOTATION(capability("mutex")) Mutex {
 public:
  constexpr Mutex() noexcept = default;

 private:
  friend class MutexLock;
  std::mutex mutex_;
};

/// Holds a mutex from its construction to its end; may release it in between. Works with
/// std::condition_variable_any, too, where a stop token ends the wait.
class TAMU_THREAD_ANNOTATION(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) TAMU_THREAD_ANNOTATION(acquire_capability(mutex)) : lock_(mutex.mutex_) {}
  ~MutexLock() TAMU_THREAD_ANNOTATION(release_capability()) = default;
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void lock() TAMU_THREAD_ANNOTATION(acquire_capability()) { lock_.lock(); }
  void unlock() TAMU_THREAD_ANNOTATION(release_capability()) { lock_.unlock(); }

 private:
  friend class ConditionVariable;
  std::unique_lock<std::mutex> lock_;
};

/// Waits with a lock that is held before and after the wait, and while a predicate is called.
class ConditionVariable {
 public:
  void notify_one() noexcept { condition_.notify_one(); }
  void notify_all() noexcept { condition_.notify_all(); }

  void wait(MutexLock& lock) { condition_.wait(lock.lock_); }
  template <class Clock, class Duration>
  std::cv_status wait_until(MutexLock& lock, const std::chrono::time_point<Clock, Duration>& deadline) {
    return condition_.wait_until(lock.lock_, deadline);
  }

  // The analysis cannot know that a predicate's mutex is the lock's.
  template <class Predicate>
  void wait(MutexLock& lock, Predicate predicate) TAMU_NO_THREAD_SAFETY_ANALYSIS {
    condition_.wait(lock.lock_, predicate);
  }

  /// Returns the predicate's value at the end.
  template <class Clock, class Duration, class Predicate>
  bool wait_until(MutexLock& lock, const std::chrono::time_point<Clock, Duration>& deadline,
                  Predicate predicate) TAMU_NO_THREAD_SAFETY_ANALYSIS {
    return condition_.wait_until(lock.lock_, deadline, predicate);
  }
  template <class Rep, class Period, class Predicate>
  bool wait_for(MutexLock& lock, const std::chrono::duration<Rep, Period>& time,
                Predicate predicate) TAMU_NO_THREAD_SAFETY_ANALYSIS {
    return condition_.wait_for(lock.lock_, time, predicate);
  }

 private:
  std::condition_variable condition_;
};

}  // namespace ecu::tamu
