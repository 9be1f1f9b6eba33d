#pragma once

#include <functional>
#include <optional>
#include <string>

namespace bench {

/// The processor time of a process so far, in microseconds.
[[nodiscard]] double cpu_time(int pid);

/// What a process costs while nothing happens.
struct IdleCosts {
  long peak_resident_kilobytes;
  long private_dirty_kilobytes;
  long wake_ups;
};
/// Watches the process for `seconds`.
[[nodiscard]] IdleCosts idle_costs(int pid, int seconds);

/// The system calls of a process during `action`, or its instructions outside the kernel. Nothing if the
/// tool that counts, strace or perf, is missing or refuses to.
[[nodiscard]] std::optional<double> system_calls(int pid, const std::function<void()>& action);
[[nodiscard]] std::optional<double> instructions(int pid, const std::function<void()>& action);

}  // namespace bench
