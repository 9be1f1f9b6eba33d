// Measures the path of a message through a real broker. The daemon, optionally that of another build, and
// three programs written by hand take turns in the middle. Each round measures all of them, and the ratios
// are those of one round, so that a machine whose speed changes does not change them.

#include <mosquittopp.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "echo.h"
#include "probe.h"
#include "process_costs.h"
#include "support/broker.h"
#include "support/process.h"
#include "support/temp_dir.h"

namespace {

using namespace bench;

constexpr int warm_up_messages = 300;
constexpr int measured_messages = 2000;
constexpr int counted_messages = 500;  // under strace or perf
constexpr int idle_seconds = 5;
constexpr const char* other_daemon = "other daemon";

/// A program in the middle, with the number of results that it publishes for a message.
struct Subject {
  std::string name;
  std::vector<std::string> arguments;
};

struct Column {
  const char* title;
  const char* unit;
};
constexpr std::array<Column, 4> columns{{{"one by one", "latency, us"},
                                         {"one by one", "cpu us/result"},
                                         {"saturated", "cpu us/result"},
                                         {"saturated", "results/s"}}};
using Figures = std::array<double, columns.size()>;

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

Figures measure(Probe& probe, int pid, int results) {
  for (int i = 0; i < warm_up_messages; ++i) {
    (void)probe.round_trip();
  }
  std::vector<double> latencies(measured_messages);
  double before = cpu_time(pid);
  std::generate(latencies.begin(), latencies.end(), [&probe] { return probe.round_trip(); });
  const double all_results = static_cast<double>(measured_messages) * results;
  const double alone = (cpu_time(pid) - before) / all_results;
  before = cpu_time(pid);
  const auto start = std::chrono::steady_clock::now();
  probe.stream(measured_messages);
  return {median(std::move(latencies)), alone, (cpu_time(pid) - before) / all_results,
          all_results / seconds_since(start)};
}

// ---- tables ----

using Rounds = std::map<std::string, std::vector<Figures>>;

/// One line: the medians, or for a program that is compared the median, smallest and largest ratio.
void print_line(const std::string& name, const std::vector<Figures>& own, const std::vector<Figures>& base) {
  std::printf("%-22s", name.c_str());
  for (std::size_t column = 0; column < columns.size(); ++column) {
    std::vector<double> values;
    std::vector<double> ratios;
    for (std::size_t round = 0; round < own.size(); ++round) {
      values.push_back(own[round][column]);
      ratios.push_back(own[round][column] / base[round][column]);
    }
    const auto [least, most] = std::minmax_element(ratios.begin(), ratios.end());
    std::printf("%10.*f %5.2f (%4.2f-%4.2f)", column == 3 ? 0 : 1, median(values), median(ratios), *least,
                *most);
  }
  std::printf("\n");
}

void print_table(const std::vector<Subject>& subjects, const Rounds& figures) {
  std::printf("%-22s", "");
  for (const Column& column : columns) {
    std::printf("  %-13s %-12s", column.unit, column.title);
  }
  std::printf("\n");
  for (const Subject& subject : subjects) {
    print_line(subject.name, figures.at(subject.name), figures.at(subjects.front().name));
  }
  if (subjects.back().name == other_daemon) {
    print_line("daemon / other", figures.at("daemon"), figures.at(other_daemon));
  }
}

// ---- runs ----

class Comparison {
 public:
  Comparison(int rounds, std::string host, int port, std::vector<std::string> daemons)
      : rounds_(rounds),
        host_(std::move(host)),
        port_(std::to_string(port)),
        config_(dir_.write("tolquil.conf", "host = " + host_ + "\nport = " + port_ + "\n")),
        daemons_(std::move(daemons)) {}

  void run(int results) const {
    const std::vector<Subject> all = subjects(results);
    Rounds figures;
    for (int round = 0; round < rounds_; ++round) {
      for (const Subject& subject : all) {
        Probe probe(host_, std::stoi(port_), results);
        const tests::Process process(subject.arguments);
        probe.wait_for_answer();
        figures[subject.name].push_back(measure(probe, process.pid(), results));
      }
    }
    std::printf("\n%d result%s a message\n", results, results == 1 ? "" : "s");
    print_table(all, figures);
  }

  void print_costs() const {
    std::printf("\n%-22s%14s%20s%20s%18s%38s\n", "", "start, cpu ms", "peak resident, kB",
                "private dirty, kB", "wake-ups in 5 s", "system calls, instructions a message");
    const std::vector<Subject> with_many = subjects(many_results);
    for (const Subject& subject : subjects(1)) {
      const auto same = std::find_if(with_many.begin(), with_many.end(),
                                     [&](const Subject& other) { return other.name == subject.name; });
      print_costs(subject, *same);
    }
  }

 private:
  [[nodiscard]] std::vector<Subject> subjects(int results) const {
    const auto echo = [&](std::string_view kind) {
      return std::vector<std::string>{"/proc/self/exe", std::string(kind), host_, port_,
                                      std::to_string(results)};
    };
    std::vector<Subject> all{{"inline echo", echo(inline_echo)},
                             {"working echo", echo(working_echo)},
                             {"batching echo", echo(batching_echo)},
                             {"daemon", {daemons_.front(), "-c", config_}}};
    if (daemons_.size() > 1) {
      all.push_back({other_daemon, {daemons_.back(), "-c", config_}});
    }
    return all;
  }

  void print_costs(const Subject& with_one, const Subject& with_many) const {
    print_start_and_idle_costs(with_one);
    print_counts(with_one, 1);
    print_counts(with_many, many_results);
    std::printf("\n");
  }

  void print_start_and_idle_costs(const Subject& subject) const {
    std::vector<double> starts;
    for (int round = 0; round < rounds_; ++round) {
      Probe probe(host_, std::stoi(port_), 1);
      const tests::Process process(subject.arguments);
      probe.wait_for_answer();
      starts.push_back(cpu_time(process.pid()) / 1000);
    }
    Probe probe(host_, std::stoi(port_), 1);
    const tests::Process process(subject.arguments);
    probe.wait_for_answer();
    probe.stream(measured_messages);
    const IdleCosts idle = idle_costs(process.pid(), idle_seconds);
    std::printf("%-22s%14.1f%20ld%20ld%18ld", subject.name.c_str(), median(std::move(starts)),
                idle.peak_resident_kilobytes, idle.private_dirty_kilobytes, idle.wake_ups);
  }

  void print_counts(const Subject& subject, int results) const {
    Probe probe(host_, std::stoi(port_), results);
    const tests::Process process(subject.arguments);
    probe.wait_for_answer();
    const auto round_trips = [&probe] {
      for (int i = 0; i < counted_messages; ++i) {
        (void)probe.round_trip();
      }
    };
    for (const auto& count : {system_calls, instructions}) {
      const std::optional<double> total = count(process.pid(), round_trips);
      std::printf("%9s", total ? std::to_string(std::lround(*total / counted_messages)).c_str() : "-");
    }
  }

  const tests::TempDir dir_;
  const int rounds_;
  const std::string host_;
  const std::string port_;
  const std::string config_;
  const std::vector<std::string> daemons_;
};

void compare(int rounds, const std::vector<std::string>& daemons) {
  const tests::Broker broker;
  std::printf("Medians of %d rounds of %d messages; in brackets the smallest and largest ratio\n", rounds,
              measured_messages);
  for (const std::string& host : {std::string("127.0.0.1"), broker.socket_path()}) {
    std::printf("\n%s\n", host.front() == '/' ? "Unix-domain socket" : "TCP loopback");
    const Comparison comparison(rounds, host, broker.port(), daemons);
    comparison.run(1);
    comparison.run(many_results);
    comparison.print_costs();
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  try {
    mosqpp::lib_init();
    if (arguments.size() == 4) {
      run_echo(arguments[0], arguments[1], std::stoi(arguments[2]), std::stoi(arguments[3]));
    } else if (arguments.size() == 2 || arguments.size() == 3) {
      compare(std::stoi(arguments[0]), {arguments.begin() + 1, arguments.end()});
      return EXIT_SUCCESS;
    } else {
      (void)std::fprintf(stderr, "Usage: bus_roundtrip ROUNDS TOLQUIL [OTHER_TOLQUIL]\n");
    }
  } catch (const std::exception& failure) {
    (void)std::fprintf(stderr, "bus_roundtrip: %s\n", failure.what());
  }
  return EXIT_FAILURE;
}
