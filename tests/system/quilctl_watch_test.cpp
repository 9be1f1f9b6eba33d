#include <csignal>

#include "support/ports.h"
#include "system/quilctl_fixture.h"

namespace tests {
namespace {

/// The commands that run until they are stopped.
using QuilctlWatchTest = QuilctlTest;

TEST_F(QuilctlWatchTest, AWatchReportsEachChangeOnceAndSurvivesALossOfTheBroker) {
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
  again.publish("rt/system/hw_variant", hardware_variant("R08_D1"));
  EXPECT_TRUE(watch.wait_for_output("  hwvariant  R08_D1\n"));
  watch.signal(SIGINT);
  EXPECT_EQ(watch.wait(), 0);
  EXPECT_EQ(count(watch.standard_output(), "R08_B1"), 1);
  EXPECT_EQ(count(watch.standard_output(), "hwversion"), 1);
}

TEST_F(QuilctlWatchTest, AWatchEndsAfterACountOrATimeAndRunsACommand) {
  start_surroundings();
  start_daemon();
  publish_variant("R08_B1");
  call({"get", "hwvariant", "--wait", "20"});
  const Json first = json_of({"watch", "hwvariant", "--count", "1", "--json"});
  EXPECT_EQ(first["value"], "R08_B1");
  EXPECT_EQ(first["retained"], true);
  const Outcome late = call({"watch", "hwvaraint", "zz*", "--count", "1", "--timeout", "0.5"}, 27);
  EXPECT_THAT(late.all, HasSubstr("did you mean 'hwvariant'?\n"));
  EXPECT_THAT(late.all, HasSubstr("quilctl: 0 of 1 within the time of --timeout\n"));
  EXPECT_EQ(call({"watch", "hwversion", "--timeout", "0.5", "--format", "{name}"}).out, "hwversion\n");
  EXPECT_EQ(call({"decode", "absent", "--count", "1", "--timeout", "0.5"}, 27).out, "");
  const Outcome run =
      call({"watch", "hwvariant", "--count", "1", "--exec", "echo $NAME=$VALUE $RETAINED; absent; exit 3"});
  EXPECT_EQ(run.out, "hwvariant=R08_B1 1\n");
  EXPECT_THAT(run.all,
              testing::ContainsRegex("quilctl: 1: absent: not found\n(.|\n)*ended with exit code 3\n"));
  bus.publish("system/var/long", variable_message(std::string(60'000, '\x01')).payload, true, 1);
  EXPECT_THAT(call({"watch", "long", "--count", "1", "--exec", "true"}).all,
              HasSubstr("quilctl: the value of long is too long for a command\n"));
  const std::string hanging = "trap '' TERM; echo started; sleep 1000; sleep 1000";
  EXPECT_EQ(call({"watch", "hwvariant", "--timeout", "1", "--exec", hanging}).out, "started\n");
  Process interrupted(command({"watch", "hwvariant", "--exec", "echo started; read none; sleep 1000"}));
  ASSERT_TRUE(interrupted.wait_for_output("started"));
  interrupted.signal(SIGTERM);
  EXPECT_EQ(interrupted.wait(), 0);
  for (const std::string line : {"list", "describe", "watch"}) {
    const std::string without_reader = R"(exec > >(:); wait $!; "$0" "$1" --host "$2"; exit $?)";
    EXPECT_EQ(Process({"/bin/bash", "-c", without_reader, PROGRAM_DIR "/quilctl", line, broker.socket_path()})
                  .wait(),
              128 + SIGPIPE)
        << line;
  }
  for (const auto& [tool, word] : {std::pair{"/quilctl", "describe"}, {"/ecusim", "scenario"}}) {
    EXPECT_EQ(
        Process({"/bin/sh", "-c", R"(exec "$0" "$1" >&-)", PROGRAM_DIR + std::string(tool), word}).wait(), 1)
        << tool;
  }
}

TEST_F(QuilctlWatchTest, ASignalEndsEveryWait) {
  Process decode(command({"decode"}));
  std::atomic_bool ended = false;
  const auto flood = std::async(std::launch::async, [&] {
    BusClient source(broker.port());
    while (!ended) {
      source.publish("flood", std::string(1000, 'x'));
    }
  });
  EXPECT_TRUE(decode.wait_for_output("flood", 50));
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

TEST_F(QuilctlWatchTest, ARecordingOfTheRealTimeSideIsReplayed) {
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

TEST_F(QuilctlWatchTest, ReplayDetectsAMissingBrokerAndDeniedMessages) {
  const std::string recording = dir.write("recording", "quilctl-recording 1\n0.0 \"rt/x\" \"1\"\n");
  const Broker deaf("allow_anonymous true\nacl_file " + dir.write("acl", "topic read #\n"));
  Process replay(
      {PROGRAM_DIR "/quilctl", "replay", recording, "--timeout", "3", "--host", deaf.socket_path()});
  EXPECT_EQ(replay.wait(), 5);
  EXPECT_THAT(replay.output(),
              HasSubstr("1 of 1 messages did not come back from the broker; its access rules"));
  broker.stop();
  call({"record", recording}, 7);
  EXPECT_GT(std::ifstream(recording).seekg(0, std::ios::end).tellg(), 0);
}

// ---- on a terminal of its own ----

const std::string second_screen = "\x1b[?1049h", first_screen = "\x1b[?1049l";

/// Runs a line of a shell that has job control, on a terminal of 60 columns and 12 lines.
std::vector<std::string> on_terminal(const std::string& line) {
  return {"/usr/bin/script", "-qec",
          "stty cols 60 rows 12; export TERM=xterm; exec bash -c 'set -m; " + line + "'", "/dev/null"};
}

/// The youngest of a process's descendants, each of which has one child at most.
int last_descendant(int pid) {
  const std::string task = std::to_string(pid);
  int child = 0;
  std::ifstream("/proc/" + task + "/task/" + task + "/children") >> child;
  return child == 0 ? pid : last_descendant(child);
}

TEST_F(QuilctlWatchTest, ATableFitsTheTerminalAndRestoresIt) {
  start_surroundings();
  start_daemon();
  publish_variant("R08_B1");
  const std::string table = "\"" PROGRAM_DIR "/quilctl\" watch --table --host " + broker.socket_path();
  Process terminal(on_terminal(table + "; echo given back; fg"));
  ASSERT_TRUE(terminal.wait_for_output("r08"));
  publish_variant("R09_C1");
  ASSERT_TRUE(terminal.wait_for_output("R09_C1")) << "a line below the table";
  EXPECT_THAT(terminal.output(), HasSubstr("8/31"));

  ASSERT_EQ(::kill(last_descendant(terminal.pid()), SIGTSTP), 0);
  ASSERT_TRUE(terminal.wait_for_output(second_screen, 2)) << "stopped, and continued by the shell";
  const std::string output = terminal.output();
  EXPECT_LT(output.find(first_screen), output.find("given back"));
  EXPECT_LT(output.find("given back"), output.rfind(second_screen));

  for (const int signal_number : {SIGHUP, SIGQUIT}) {
    Process ended(on_terminal(table));
    ASSERT_TRUE(ended.wait_for_output("r09"));
    ASSERT_EQ(::kill(last_descendant(ended.pid()), signal_number), 0);
    EXPECT_EQ(ended.wait(), 0);
    EXPECT_THAT(ended.output(), HasSubstr(first_screen));
  }

  Process unknown(on_terminal("TERM=absent " + table + " --timeout 1"));
  EXPECT_EQ(unknown.wait(), 0);
  EXPECT_THAT(unknown.output(), HasSubstr("a table needs a terminal"));

  broker.stop();
  ASSERT_TRUE(terminal.wait_for_output("NO CONNECTION"));
  ASSERT_EQ(::kill(last_descendant(terminal.pid()), SIGINT), 0);
  EXPECT_EQ(terminal.wait(), 0);
  EXPECT_THAT(terminal.output().substr(terminal.output().rfind(first_screen)),
              testing::ContainsRegex("R09_C1 +[0-9]+ s "));

  Process without_broker(on_terminal(table));
  EXPECT_EQ(without_broker.wait(), 7);
  EXPECT_THAT(without_broker.output(), testing::StartsWith("quilctl: broker "));
}

}  // namespace
}  // namespace tests
