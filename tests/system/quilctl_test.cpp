#include <atomic>
#include <csignal>
#include <fstream>
#include <future>
#include <map>
#include <nlohmann/json.hpp>

#include "support/ports.h"
#include "system/daemon.h"

namespace tests {
namespace {

using Json = nlohmann::json;
using testing::HasSubstr;
using testing::Not;

/// What a call came back with.
struct Outcome {
  int code;
  std::string out;
  std::string all;  // with what went to standard error
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
  /// The hardware's variant, as the real-time side tells it.
  void publish_variant(const std::string& variant) {
    bus.publish("rt/system/hw_variant", Group().bytes("variant", variant).message().payload);
  }

  TempDir dir;
  Broker broker;
  BusClient bus{broker.port()};
  std::optional<Process> surroundings;
  std::optional<Daemon> daemon;
};

const std::string two_parameters =
    R"({"parameters": [{"id": "0xa009", "text": "TV 1"}, {"id": 17, "hex": "00ff"}])";

TEST_F(QuilctlTest, AValueIsToldFromNoneAndAnUnknownNameFromBoth) {
  start_surroundings(two_parameters + "}");
  start_daemon();
  publish_variant("R08_B1");
  EXPECT_EQ(call({"get", "hwvariant", "--wait", "20"}).out, "R08_B1\n");
  EXPECT_EQ(call({"get", "hwvariant", "--raw"}).out, "R08_B1");
  EXPECT_EQ(json_of({"get", "topversion", "--wait", "20", "--json"})["value"], "TV 1");
  EXPECT_THAT(call({"get", "vehicleid"}, 4).all, HasSubstr("quilctl: vehicleid has no value\n"));
  EXPECT_THAT(call({"get", "nothing"}, 3).all, HasSubstr("no variable is named nothing"));
  EXPECT_EQ(call({"get", "#"}, 3).out, "");
  EXPECT_EQ(call({"get", "vehicleid", "--wait", "0.2"}, 27).out, "");
  bus.publish("system/var/odd", "junk", true, 1);
  EXPECT_THAT(call({"get", "odd"}, 1).all, HasSubstr("the message on system/var/odd cannot be decoded"));

  std::map<std::string, Json> listed;
  std::istringstream lines(call({"list", "--json"}).out);
  for (std::string line; std::getline(lines, line);) {
    listed[Json::parse(line)["name"]] = Json::parse(line);
  }
  EXPECT_EQ(listed.size(), 31u);
  EXPECT_EQ(listed["hwversion"]["value"], "r08");
  EXPECT_LT(listed["hwversion"]["age_s"], 60);
  EXPECT_EQ(listed["vehicleid"]["value"], nullptr);
  EXPECT_THAT(call({"list"}).out, HasSubstr("\nhwvariant            R08_B1 "));
  EXPECT_EQ(call({"status"}).code, 0);
  EXPECT_EQ(json_of({"status", "--json"})["parameters_cached"], 2);
}

TEST_F(QuilctlTest, WithoutADaemonOrABrokerItSaysSoAtOnce) {
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"get", "vehicleid"}, {"param", "list", "--timeout", "2"}, {"status", "--timeout", "2"}}) {
    EXPECT_EQ(call(words, 6).code, 6);
  }
  bus.publish(presence_topic, "offline", true);
  EXPECT_THAT(call({"param", "set", "1=2"}, 6).all, HasSubstr("quilctl: the daemon is off line\n"));
  EXPECT_THAT(call({"list"}).all, HasSubstr("the daemon is off line"));
  broker.stop();
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"list"}, {"watch"}, {"status"}, {"decode"}, {"secstore", "get", "master"}}) {
    EXPECT_THAT(call(words, 7).all,
                HasSubstr("quilctl: broker " + broker.socket_path() + " not reachable: "));
  }
}

TEST_F(QuilctlTest, WhatItCannotUseIsWrongUsage) {
  const std::string faulty = dir.write("faulty", "host = a\nport = 0\n");
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{},
                                             {"nothing"},
                                             {"get"},
                                             {"get", "a", "b"},
                                             {"list", "--port", "0"},
                                             {"list", "--port", "0x10"},
                                             {"list", "--timeout", "nan"},
                                             {"list", "--cert", faulty, "--cafile", faulty},
                                             {"list", "--cert", faulty, "--key", faulty},
                                             {"decode", "a/#/b"},
                                             {"record", "-", "--topics", "a+"},
                                             {"list", "--config", dir.path("absent")},
                                             {"list", "--config", faulty},
                                             {"list", "--cafile", dir.path("absent")},
                                             {"list", "--password-file", dir.path("absent")},
                                             {"list", "--raw"},
                                             {"get", "a", "--raw", "--json"},
                                             {"param", "get", "1", "2", "--raw"},
                                             {"param", "get", "12abc"},
                                             {"param", "set", "17"},
                                             {"param", "set", "17=hex:0"},
                                             {"param", "set", "17=a", "0x11=b"},
                                             {"secstore", "set", "master", "in-clear"},
                                             {"secstore", "get", "third"}}) {
    EXPECT_EQ(call(words, 2).out, "");
  }
}

// ---- system parameters ----

TEST_F(QuilctlTest, AParameterIsWrittenOnceItHasBeenReadBack) {
  start_surroundings(two_parameters + "}");
  start_daemon();
  call({"get", "topversion", "--wait", "20"});
  EXPECT_EQ(call({"param", "get", "0xa009"}).out, "TV 1\n");
  EXPECT_EQ(call({"param", "get", "17", "0xa009"}).out, "0x11  \\x00\\xff\n0xa009  TV 1\n");
  EXPECT_THAT(call({"param", "get", "17", "5"}, 3).all, HasSubstr("no such parameter: 0x5"));
  EXPECT_EQ(call({"param", "set", "0xa009=hex:0aff", "5=@" + dir.write("value", "five")}).out,
            "0xa009  \\x0a\\xff\n0x5  five\n");
  EXPECT_EQ(json_of({"param", "get", "0xa009", "--json"})["value"]["hex"], "0aff");
  EXPECT_EQ(call({"param", "get", "5", "--raw"}).out, "five");
  EXPECT_EQ(call({"param", "set", "5="}).out, "0x5  \"\"\n");
}

TEST_F(QuilctlTest, AWriteThatChangesNothingIsNotTakenForDone) {
  start_surroundings(two_parameters + R"(, "answer_writes": false})");
  start_daemon();
  call({"get", "topversion", "--wait", "20"});
  EXPECT_EQ(call({"param", "set", "17=hex:00ff"}).code, 0) << "it has this value";
  EXPECT_THAT(call({"param", "set", "17=new", "--timeout", "3"}, 27).all, HasSubstr("no answer within 3 s"));
}

TEST_F(QuilctlTest, AWriteIsDoneAlsoAmongOthersWhoReadAndWrite) {
  start_surroundings(two_parameters + "}");
  start_daemon();
  call({"get", "topversion", "--wait", "20"});
  std::atomic_bool enough = false;
  std::vector<std::future<void>> readers;
  while (readers.size() < 3) {
    readers.push_back(std::async(std::launch::async, [&] {
      while (!enough) {
        call({"param", "list"}, std::nullopt);
      }
    }));
  }
  const auto other_writer = std::async(std::launch::async, [&] { call({"param", "set", "19=other"}); });
  for (const char* value : {"17=a", "17=b", "17=c", "17=d", "17=e"}) {
    call({"param", "set", value});
  }
  other_writer.wait();
  enough = true;
  EXPECT_EQ(call({"param", "get", "17", "19"}).out, "0x11  e\n0x13  other\n");
}

TEST_F(QuilctlTest, AWriteThatTheDaemonDiscardsIsRefused) {
  start_surroundings();
  start_daemon();
  EXPECT_THAT(call({"param", "get", "17"}, 3).all, HasSubstr("nothing has come from the other side"));
  EXPECT_EQ(call({"param", "set", "17=new"}, 5).out, "");
}

// ---- secure storage ----

TEST_F(QuilctlTest, SecretsAreConfirmedAndShownOnRequestOnly) {
  start_surroundings();
  start_daemon();
  const std::string file = dir.write("secret", "s3cr3t\xff");
  EXPECT_EQ(call({"secstore", "get", "master"}, 4).out, "");
  EXPECT_EQ(call({"secstore", "set", "master", "@" + file}).all, "");
  EXPECT_EQ(call({"secstore", "get", "master"}).out, "s3cr3t\xff");
  EXPECT_EQ(json_of({"secstore", "get", "master", "--json"})["hex"], "733363723374ff");
  EXPECT_THAT(call({"decode", "system/quil/secstore/#", "--count", "1"}).all, Not(HasSubstr("7333")));
  surroundings.reset();
  EXPECT_THAT(call({"secstore", "set", "remote", "@" + file, "--timeout", "3"}, 27).all,
              HasSubstr("not confirmed within 3 s"));
}

// ---- what goes on until it is stopped ----

TEST_F(QuilctlTest, AWatchTellsEachChangeOnceAndOutlivesTheBroker) {
  start_surroundings();
  start_daemon();
  Process watch(command({"watch", "hw*", "vehiclevariant"}));
  ASSERT_TRUE(watch.wait_for_output("the daemon is on line"));
  publish_variant("R08_B1");
  ASSERT_TRUE(watch.wait_for_output("  hwvariant  R08_B1\n"));
  publish_variant("R08_B1");
  publish_variant("R08_C1");
  ASSERT_TRUE(watch.wait_for_output("  hwvariant  R08_C1\n"));
  broker.stop();
  ASSERT_TRUE(watch.wait_for_output("trying again"));
  broker.start();
  ASSERT_TRUE(watch.wait_for_output("connected again"));
  BusClient again(broker.port());
  again.subscribe(presence_topic);
  ASSERT_TRUE(again.wait_for_text(presence_topic, "online")) << "the daemon is back too";
  again.publish("rt/system/hw_variant", Group().bytes("variant", "R08_D1").message().payload);
  EXPECT_TRUE(watch.wait_for_output("  hwvariant  R08_D1\n"));
  watch.signal(SIGINT);
  EXPECT_EQ(watch.wait(), 0);
  EXPECT_EQ(count(watch.standard_output(), "R08_B1"), 1);
  EXPECT_EQ(count(watch.standard_output(), "hwversion"), 1);
}

TEST_F(QuilctlTest, ASignalEndsItWhateverItIsDoing) {
  Process decode(command({"decode"}));
  std::atomic_bool ended = false;
  const auto flood = std::async(std::launch::async, [&] {
    BusClient source(broker.port());
    while (!ended) {
      source.publish("flood", std::string(1000, 'x'));
    }
  });
  EXPECT_TRUE(decode.wait_for_output("flood", 1000));
  decode.signal(SIGTERM);
  EXPECT_EQ(decode.wait(), 0);
  ended = true;

  Fifo input(dir, "input");
  input.open();
  input.write("quilctl-recording 1\n0.0 \"rt/x\" \"1\"\n");
  bus.subscribe("rt/x");
  Process replay({"/bin/sh", "-c", R"(exec "$0" replay - --host "$1" < "$2")", PROGRAM_DIR "/quilctl",
                  broker.socket_path(), input.path()});
  EXPECT_TRUE(bus.wait_for("rt/x"));
  replay.signal(SIGTERM);
  EXPECT_EQ(replay.wait(), 128 + SIGTERM);
}

TEST_F(QuilctlTest, ARecordingPlaysTheRealTimeSideBack) {
  const std::string recording = dir.path("recording");
  bus.publish("rt/x", "old", true);
  Process record(command({"record", recording}));
  const auto recorded = [&] {
    std::ifstream file(recording);
    return std::string(std::istreambuf_iterator<char>(file), {});
  };
  while (recorded().find(R"("rt/x" retained "old")") == std::string::npos) {
    ASSERT_FALSE(record.wait(std::chrono::milliseconds(5)));
  }
  publish_variant("R08_B1");
  bus.publish("system/quil/secstore/setmaster", "s3cr3t");
  bus.publish("system/other", "x", false, 1);
  while (recorded().find(R"("system/other" qos1 "x")") == std::string::npos) {
    ASSERT_FALSE(record.wait(std::chrono::milliseconds(5)));
  }
  record.signal(SIGTERM);
  EXPECT_EQ(record.wait(), 0);
  EXPECT_THAT(recorded(), HasSubstr("\"system/quil/secstore/setmaster\" redacted\n"));

  start_surroundings();
  start_daemon();
  std::ofstream(recording, std::ios::app) << "9.0 \"rt/j1939can/tx/rqst_fb_ee\" \"the daemon's own\"\n";
  EXPECT_THAT(call({"replay", recording, "--speed", "0"}).all, HasSubstr("2 messages published"));
  EXPECT_EQ(call({"get", "hwvariant", "--wait", "20"}).out, "R08_B1\n");
  std::ofstream(recording, std::ios::app) << "x\n";
  EXPECT_THAT(call({"replay", recording}, 1).all, HasSubstr(recording + ":8: "));
}

TEST_F(QuilctlTest, ARecordingIsLostToNoBrokerAndBelievesNone) {
  const std::string recording = dir.write("recording", "quilctl-recording 1\n0.0 \"rt/x\" \"1\"\n");
  const Broker deaf("allow_anonymous true\nacl_file " + dir.write("acl", "topic read #\n"));
  Process replay(
      {PROGRAM_DIR "/quilctl", "replay", recording, "--timeout", "0.3", "--host", deaf.socket_path()});
  EXPECT_EQ(replay.wait(), 5);
  EXPECT_THAT(replay.output(), HasSubstr("1 of 1 messages have not come back"));
  broker.stop();
  call({"record", recording}, 7);
  EXPECT_GT(std::ifstream(recording).seekg(0, std::ios::end).tellg(), 0);
}

TEST_F(QuilctlTest, AFileIsCheckedAsTheDaemonWould) {
  const std::string file = dir.write("conf", "port = 1\nfoo\nport = x\nlogmode = loud\nbar = 1\n");
  EXPECT_EQ(call({"check", file}, 1).out,
            file + ": warning: key 'logmode': 'loud' is none of syslog, stdout, stderr\n" + file +
                ":2: error: 'foo' does not begin a line of the form key = value\n" + file +
                ":3: error: key 'port' is in line 1 already\n" + file +
                ":3: error: key 'port': 'x' is not a port, 1 to 65535\n" + file +
                ":5: error: unknown key 'bar'\n");
  const std::string good = dir.write("conf", "host = h\npassword = s3cr3t\n");
  const std::string shown = call({"check", good}).out;
  EXPECT_THAT(shown, HasSubstr("\nhost = h\nport = 1883\nusername = \npassword = (set)\n"));
  EXPECT_THAT(shown, HasSubstr("\nqpread = /dev/qport/telematics_param_receive\n"));
  EXPECT_EQ(call({"check", dir.path("absent")}, 1).out, "");
  EXPECT_THAT(call({"check", dir.write("conf", "caf\xe9 = a\n"), "--json"}, 1).out,
              HasSubstr(R"("text":"unknown key 'caf\\xe9'")"));
  EXPECT_THAT(call({"check", dir.write("conf", "host = caf\xe9\n"), "--json"}).out,
              HasSubstr(R"({"key":"host","value":{"hex":"636166e9"}})"));
}

// ---- on a terminal of its own ----

const std::string second_screen = "\x1b[?1049h", first_screen = "\x1b[?1049l";

/// Runs a line of a shell that has job control, on a terminal of 60 columns and 12 lines.
std::vector<std::string> on_terminal(const std::string& line) {
  return {"/usr/bin/script",
          "--quiet",
          "--return",
          "--command",
          "stty cols 60 rows 12; exec bash -c 'set -m; " + line + "'",
          "/dev/null"};
}

/// The youngest of a process's descendants, each of which has one child at most.
int last_descendant(int pid) {
  const std::string task = std::to_string(pid);
  int child = 0;
  std::ifstream("/proc/" + task + "/task/" + task + "/children") >> child;
  return child == 0 ? pid : last_descendant(child);
}

TEST_F(QuilctlTest, ATableFitsTheTerminalAndLeavesItAsItWas) {
  start_surroundings();
  start_daemon();
  publish_variant("R08_B1");
  const std::string table = PROGRAM_DIR "/quilctl watch --table --host " + broker.socket_path();
  Process terminal(on_terminal(table + "; echo given back; fg"));
  ASSERT_TRUE(terminal.wait_for_output("r08 "));
  publish_variant("R09_C1");
  ASSERT_TRUE(terminal.wait_for_output("r09 "));
  EXPECT_THAT(terminal.output(), HasSubstr("more: make the terminal higher"));
  bus.publish("system/var/odd", "junk");
  EXPECT_TRUE(terminal.wait_for_output("odd  cannot be decoded"));

  ASSERT_EQ(::kill(last_descendant(terminal.pid()), SIGTSTP), 0);
  ASSERT_TRUE(terminal.wait_for_output(second_screen, 2)) << "stopped, and continued by the shell";
  const std::string output = terminal.output();
  EXPECT_LT(output.find(first_screen), output.find("given back"));
  EXPECT_LT(output.find("given back"), output.rfind(second_screen));

  broker.stop();
  ASSERT_TRUE(terminal.wait_for_output("NO CONNECTION"));
  ASSERT_EQ(::kill(last_descendant(terminal.pid()), SIGINT), 0);
  EXPECT_EQ(terminal.wait(), 0);
  EXPECT_THAT(terminal.output().substr(terminal.output().rfind(first_screen)), HasSubstr("R09_C1"));

  Process without_broker(on_terminal(table));
  EXPECT_EQ(without_broker.wait(), 7);
  EXPECT_THAT(without_broker.output(), testing::StartsWith("quilctl: broker "));
}

}  // namespace
}  // namespace tests
