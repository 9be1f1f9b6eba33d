#include "process_costs.h"

#include <signal.h>
#include <time.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include "support/process.h"

namespace bench {

namespace {

long number_after(const std::string& key, const std::filesystem::path& path) {
  std::ifstream file(path);
  for (std::string word; file >> word;) {
    if (long number = 0; word == key && file >> number) {
      return number;
    }
  }
  return 0;
}

// How often the threads of the process went to sleep so far.
long sleeps(const std::filesystem::path& process) {
  long total = 0;
  for (const auto& task : std::filesystem::directory_iterator(process / "task")) {
    total += number_after("voluntary_ctxt_switches:", task.path() / "status");
  }
  return total;
}

// The last number that a tool printed at the beginning of a line.
std::optional<double> count_of(std::vector<std::string> tool, int pid, const std::function<void()>& action) {
  tool.insert(tool.end(), {"-p", std::to_string(pid)});
  tests::Process counter(std::move(tool));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));  // until it is attached
  action();
  counter.signal(SIGINT);
  counter.wait();
  std::optional<double> count;
  std::istringstream lines(counter.output());
  for (std::string line; std::getline(lines, line);) {
    if (double number = 0; std::istringstream(line) >> number) {
      count = number;
    }
  }
  return count;
}

}  // namespace

double cpu_time(int pid) {
  clockid_t clock{};
  timespec time{};
  ::clock_getcpuclockid(pid, &clock);
  ::clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

IdleCosts idle_costs(int pid, int seconds) {
  const std::filesystem::path process = "/proc/" + std::to_string(pid);
  const long sleeps_before = sleeps(process);
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  return {number_after("VmHWM:", process / "status"),
          number_after("Private_Dirty:", process / "smaps_rollup"), sleeps(process) - sleeps_before};
}

std::optional<double> system_calls(int pid, const std::function<void()>& action) {
  return count_of({"/usr/bin/strace", "-f", "-c", "-U", "calls,name"}, pid, action);
}

std::optional<double> instructions(int pid, const std::function<void()>& action) {
  return count_of({"/usr/bin/perf", "stat", "-x,", "-e", "instructions:u"}, pid, action);
}

}  // namespace bench
