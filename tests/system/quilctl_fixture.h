#pragma once

#include <nlohmann/json.hpp>

#include "system/daemon.h"

namespace tests {

using Json = nlohmann::json;

/// The result of a call.
struct Outcome {
  int code;
  std::string out;
  std::string all;  // including standard error
};

/// A broker, the simulated surroundings with their ports, and the daemon, when a test wants them; and the
/// tool.
class QuilctlTest : public testing::Test {
 protected:
  [[nodiscard]] std::vector<std::string> command(std::vector<std::string> words) const {
    words.insert(words.begin(), PROGRAM_DIR "/quilctl");
    words.insert(words.end(), {"--host", broker.socket_path()});
    return words;
  }
  Outcome call(const std::vector<std::string>& words, std::optional<int> expected = 0) const {
    Process process(command(words));
    const int code = process.wait().value_or(-1);
    EXPECT_EQ(code, expected.value_or(code)) << testing::PrintToString(words) << '\n' << process.output();
    return {code, process.standard_output(), process.output()};
  }
  [[nodiscard]] Json json_of(const std::vector<std::string>& words) const {
    return Json::parse(call(words).out);
  }

  void start_surroundings(const std::string& ports = "{}") {
    const std::string scenario = dir.write("scenario.json", R"({"messages": [], "ports": )" + ports + "}");
    surroundings.emplace(std::vector<std::string>{PROGRAM_DIR "/ecusim", "play", scenario, "--host",
                                                  broker.socket_path(), "--ports", dir.path("")});
    while (!std::ifstream(dir.path("telematics_param_send")).is_open() &&
           !surroundings->wait(std::chrono::milliseconds(5))) {
    }
  }
  void start_daemon() {
    daemon.emplace("host = " + broker.socket_path() + "\nqpread = " + dir.path("telematics_param_receive") +
                   "\nqpwrite = " + dir.path("telematics_param_send") + "\n");
    ASSERT_TRUE(daemon->wait_until_connected());
    bus.subscribe(presence_topic);
    ASSERT_TRUE(bus.wait_for_text(presence_topic, "online"));
  }
  /// Returns when the daemon has received the two parameters of the surroundings.
  void start_all(const std::string& behaviour = "") {
    start_surroundings(R"({"parameters": [{"id": "0xa009", "text": "TV 1"}, {"id": 17, "hex": "00ff"}])" +
                       behaviour + "}");
    start_daemon();
    call({"get", "topversion", "--wait", "20"});
  }
  /// The hardware variant, as the real-time side sends it.
  void publish_variant(const std::string& variant) {
    bus.publish("rt/system/hw_variant", hardware_variant(variant));
  }

  TempDir dir;
  Broker broker;
  BusClient bus{broker.port()};
  std::optional<Process> surroundings;
  std::optional<Daemon> daemon;
};

}  // namespace tests
