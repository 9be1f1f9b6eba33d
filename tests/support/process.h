#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "posix/unique_fd.h"

namespace tests {

/// How long a test waits for an expected event.
inline constexpr std::chrono::seconds time_limit{20};

/// A child process whose output is read all the time, so that it never blocks on it. Ends with its owner, and
/// with the thread that started it. One thread at a time.
class Process {
 public:
  explicit Process(std::vector<std::string> argv);
  ~Process();

  [[nodiscard]] int pid() const noexcept { return pid_; }
  void signal(int number) const;

  /// The exit status, or the number of the signal that ended it, negated; nothing while it is running.
  std::optional<int> wait(std::chrono::milliseconds timeout = time_limit);

  /// Its output on standard output and standard error so far.
  [[nodiscard]] std::string output() const;
  [[nodiscard]] std::string standard_output() const;

  /// Whether `text` has been written `times` times before the time is over or the process ends.
  bool wait_for_output(std::string_view text, int times = 1, std::chrono::milliseconds timeout = time_limit);

 private:
  void read_output();

  int pid_ = -1;
  ecu::tamu::posix::UniqueFd pidfd_;
  ecu::tamu::posix::UniqueFd out_;
  ecu::tamu::posix::UniqueFd err_;
  std::optional<int> status_;

  mutable std::mutex mutex_;  // guards all below
  std::condition_variable changed_;
  std::string output_;
  std::string standard_output_;
  bool ended_ = false;

  std::thread reader_;
};

/// The number of occurrences of `text` in `all`.
[[nodiscard]] int count(std::string_view all, std::string_view text);

}  // namespace tests
