// Measures the path of a message through a real broker: the time from its publication to the arrival of the
// last resulting variable, and the processor time that the process in between takes for each. Three processes
// take turns in that place: the daemon; an echo over the transport client; and the baseline, an echo that
// publishes constants from the message callback of the MQTT library and does nothing else. All figures are
// medians over several rounds.

#include <mosquitto.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <ecu/tamu/com/framing.h>
#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/pb/messages.pb.h>

#include "support/broker.h"
#include "support/process.h"
#include "support/temp_dir.h"

namespace {

using namespace ecu::tamu;
using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr int rounds = 6;
constexpr int warm_up_messages = 300;
constexpr int measured_messages = 2000;
constexpr int many_results = 17;
constexpr const char* role_inline = "echo-inline";
constexpr const char* role_client = "echo-client";
constexpr const char* request_topic = "rt/system/rtc_ee";
constexpr const char* last_result_topic = "system/var/serialnumber";

std::string result_topic(int number, int results) {
  return number + 1 == results ? last_result_topic : "system/var/result" + std::to_string(number);
}

com::Payload request() {
  pb::SignalGroup group;
  std::string data(128, '\0');
  data.replace(64, 4, "\xd2\x02\x96\x49");
  group.add_signal()->set_name("data");
  group.mutable_signal(0)->set_data(data);
  return com::frame(group, com::pb_protocol_type).value().payload;
}

com::Payload result() {
  pb::EcuVariable variable;
  variable.set_value("123456-7890");
  variable.set_timestamp(1'000'000'000'000);
  return com::frame(variable, com::pb_protocol_type).value().payload;
}

// ---- the echoes ----

void echo_inline(const std::string& host, int port, int results) {
  struct Echo {
    std::vector<std::string> topics;
    com::Payload payload = result();
  } echo;
  for (int i = 0; i < results; ++i) {
    echo.topics.push_back(result_topic(i, results));
  }
  mosquitto* client = mosquitto_new("echo", true, &echo);
  mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_connect_callback_set(
      client, [](mosquitto* self, void*, int) { mosquitto_subscribe(self, nullptr, request_topic, 0); });
  mosquitto_message_callback_set(client, [](mosquitto* self, void* context, const mosquitto_message*) {
    const auto& constants = *static_cast<const Echo*>(context);
    for (const std::string& topic : constants.topics) {
      mosquitto_publish(self, nullptr, topic.c_str(), static_cast<int>(constants.payload.size()),
                        constants.payload.data(), 0, true);
    }
  });
  mosquitto_connect(client, host.c_str(), host.front() == '/' ? 0 : port, 60);
  mosquitto_loop_forever(client, -1, 1);
}

void echo_over_client(const std::string& host, int port, int results) {
  struct Echo final : com::ISubscriptionObserver {
    void message(const std::string& /*topic*/, const com::Message& /*msg*/) override {
      for (const std::string& topic : topics) {
        com::Message answer = com::make_message(0, payload);
        answer.retained = true;
        (void)client->publish(topic, std::move(answer));
      }
    }
    std::shared_ptr<com::ITransportClient> client;
    std::vector<std::string> topics;
    com::Payload payload = result();
  };
  auto config = std::make_unique<config::Configuration>();
  config->set_value("client_name", "echo");
  config->set_value("host", host);
  config->set_value("port", std::to_string(port));
  const auto echo = std::make_shared<Echo>();
  echo->client = com::create_client(config, com::TransportType::mqtt);
  for (int i = 0; i < results; ++i) {
    echo->topics.push_back(result_topic(i, results));
  }
  echo->client->connect();
  echo->client->subscribe(request_topic, 0, echo);
  echo->client->start();
  echo->client->run();
}

// ---- what the kernel knows of a process ----

Microseconds cpu_time(int pid) {
  clockid_t clock{};
  timespec time{};
  ::clock_getcpuclockid(pid, &clock);
  ::clock_gettime(clock, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

long number_behind(const std::string& key, const std::filesystem::path& path) {
  std::ifstream file(path);
  for (std::string word; file >> word;) {
    if (long number = 0; word == key && file >> number) {
      return number;
    }
  }
  return 0;
}

/// How often the threads of the process went to sleep so far.
long sleeps(const std::filesystem::path& process) {
  long total = 0;
  for (const auto& task : std::filesystem::directory_iterator(process / "task")) {
    total += number_behind("voluntary_ctxt_switches:", task.path() / "status");
  }
  return total;
}

void print_idle_costs(const std::string& name, int pid) {
  constexpr std::chrono::seconds idle_time{5};
  const std::filesystem::path process = "/proc/" + std::to_string(pid);
  const long sleeps_before = sleeps(process);
  std::this_thread::sleep_for(idle_time);
  std::printf("%s: peak resident %ld kB, private dirty %ld kB, wake-ups in %lld idle seconds: %ld\n",
              name.c_str(), number_behind("VmHWM:", process / "status"),
              number_behind("Private_Dirty:", process / "smaps_rollup"),
              static_cast<long long>(idle_time.count()), sleeps(process) - sleeps_before);
}

// ---- the measuring side ----

class Probe {
 public:
  Probe(const std::string& host, int port) : client_(mosquitto_new("probe", true, this), &mosquitto_destroy) {
    mosquitto_int_option(client_.get(), MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_message_callback_set(client_.get(),
                                   [](mosquitto*, void* self, const mosquitto_message* message) {
                                     auto& probe = *static_cast<Probe*>(self);
                                     probe.seen_ = probe.seen_ || message->retain == 0;
                                   });
    for (int tries = 0; mosquitto_connect(client_.get(), host.c_str(), host.front() == '/' ? 0 : port, 60) !=
                        MOSQ_ERR_SUCCESS;
         ++tries) {
      if (tries == 500) {
        throw std::runtime_error("no broker");
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    mosquitto_subscribe(client_.get(), nullptr, last_result_topic, 0);
  }

  /// The time from the publication of a request to the arrival of its last result; nothing after
  /// `time_limit`.
  [[nodiscard]] Microseconds round_trip(std::chrono::milliseconds time_limit = std::chrono::seconds(5)) {
    seen_ = false;
    const auto start = Clock::now();
    mosquitto_publish(client_.get(), nullptr, request_topic, static_cast<int>(request_.size()),
                      request_.data(), 0, false);
    while (!seen_ && Clock::now() - start < time_limit) {
      mosquitto_loop(client_.get(), 20, 1);
    }
    if (!seen_) {
      throw std::runtime_error("no answer");
    }
    return Clock::now() - start;
  }

  void wait_for_answer() {
    for (int tries = 0; tries < 100; ++tries) {
      try {
        (void)round_trip(std::chrono::milliseconds(50));
        return;
      } catch (const std::runtime_error&) {
        continue;
      }
    }
    throw std::runtime_error("no answer");
  }

 private:
  std::unique_ptr<mosquitto, decltype(&mosquitto_destroy)> client_;
  com::Payload request_ = request();
  bool seen_ = false;
};

struct Figures {
  double latency_us;
  double cpu_us_per_result;
};

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

Figures measure(Probe& probe, int pid, int results) {
  probe.wait_for_answer();
  for (int i = 0; i < warm_up_messages; ++i) {
    (void)probe.round_trip();
  }
  std::vector<double> latencies;
  latencies.reserve(measured_messages);
  const Microseconds cpu_before = cpu_time(pid);
  for (int i = 0; i < measured_messages; ++i) {
    latencies.push_back(probe.round_trip().count());
  }
  const Microseconds cpu = cpu_time(pid) - cpu_before;
  return {median(std::move(latencies)), cpu.count() / measured_messages / results};
}

struct Subject {
  std::string name;
  int results;
  std::vector<std::string> arguments;
};

void print_table(const std::vector<Subject>& subjects,
                 const std::map<std::string, std::vector<Figures>>& figures) {
  const auto middle = [&figures](const std::string& name, double Figures::*figure) {
    std::vector<double> values;
    for (const Figures& f : figures.at(name)) {
      values.push_back(f.*figure);
    }
    return median(std::move(values));
  };
  std::printf("%-28s %12s %7s %14s %7s\n", "", "latency us", "ratio", "cpu us/result", "ratio");
  std::string baseline;
  for (const Subject& subject : subjects) {
    if (subject.name.starts_with("baseline")) {
      baseline = subject.name;
    }
    const double latency = middle(subject.name, &Figures::latency_us);
    const double cpu = middle(subject.name, &Figures::cpu_us_per_result);
    std::printf("%-28s %12.1f %7.2f %14.2f %7.2f\n", subject.name.c_str(), latency,
                latency / middle(baseline, &Figures::latency_us), cpu,
                cpu / middle(baseline, &Figures::cpu_us_per_result));
  }
}

void compare(const std::string& host, int port, const std::string& daemon) {
  const tests::TempDir dir;
  const std::string config =
      dir.write("tolquil.conf", "host = " + host + "\nport = " + std::to_string(port) + "\n");
  const auto echo = [&](const char* role, int results) {
    return std::vector<std::string>{"/proc/self/exe", role, host, std::to_string(port),
                                    std::to_string(results)};
  };
  const std::string daemon_name = "daemon, 1 result";
  const std::vector<Subject> subjects{
      {"baseline, 1 result", 1, echo(role_inline, 1)},
      {"client, 1 result", 1, echo(role_client, 1)},
      {daemon_name, 1, {daemon, "-c", config}},
      {"baseline, 17 results", many_results, echo(role_inline, many_results)},
      {"client, 17 results", many_results, echo(role_client, many_results)},
  };
  std::map<std::string, std::vector<Figures>> figures;
  Probe probe(host, port);
  for (int round = 0; round < rounds; ++round) {
    for (const Subject& subject : subjects) {
      const tests::Process process(subject.arguments);
      figures[subject.name].push_back(measure(probe, process.pid(), subject.results));
      if (subject.name == daemon_name && round + 1 == rounds) {
        print_idle_costs("daemon", process.pid());
      }
    }
  }
  print_table(subjects, figures);
}

void run_against_private_broker(const std::string& daemon) {
  const tests::Broker broker;
  std::printf("TCP loopback, medians of %d rounds of %d messages\n", rounds, measured_messages);
  compare("127.0.0.1", broker.port(), daemon);
  std::printf("\nUnix-domain socket\n");
  compare(broker.socket_path(), 1, daemon);
}

}  // namespace

int main(int argc, char* argv[]) {
  const std::vector<std::string> arguments(argv, argv + argc);
  try {
    mosquitto_lib_init();
    if (arguments.size() == 5 && arguments[1] == role_inline) {
      echo_inline(arguments[2], std::stoi(arguments[3]), std::stoi(arguments[4]));
    } else if (arguments.size() == 5 && arguments[1] == role_client) {
      echo_over_client(arguments[2], std::stoi(arguments[3]), std::stoi(arguments[4]));
    } else if (arguments.size() == 2) {
      run_against_private_broker(arguments[1]);
      return EXIT_SUCCESS;
    } else {
      (void)std::fprintf(stderr, "Usage: bus_roundtrip PATH_OF_TOLQUIL\n");
    }
  } catch (const std::exception& failure) {
    (void)std::fprintf(stderr, "bus_roundtrip: %s\n", failure.what());
  }
  return EXIT_FAILURE;
}
