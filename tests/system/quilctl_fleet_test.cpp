#include "system/quilctl_fixture.h"

namespace tests {
namespace {

using testing::AllOf;
using testing::MatchesRegex;
using testing::Not;

/// The fleet's broker is that of the fixture.
class QuilctlFleetTest : public QuilctlTest {
 protected:
  /// A unit with a bus of its own, without a daemon.
  struct Unit {
    Broker broker{};
    std::optional<Process> uplink{};
  };

  void start(Unit& unit, const std::string& name, const std::string& vin) {
    BusClient(unit.broker.port()).publish("system/var/vehicleid", variable_message(vin).payload, true, 1);
    const std::string file =
        dir.write(name, "unit = " + name + "\nhost = " + broker.socket_path() +
                            "\nbus_host = " + unit.broker.socket_path() + "\nreconnect_spread = 1\n");
    unit.uplink.emplace(std::vector<std::string>{PROGRAM_DIR "/tolquil-uplink", "-c", file});
    EXPECT_EQ(call({"--fleet", name, "get", "vehicleid", "--wait", "20"}).out, vin + '\n');
  }
};

TEST_F(QuilctlFleetTest, ShowsTheUnitsAndRetiresOne) {
  Unit first, second;
  start(first, "U1", "A");
  start(second, "U2", "B");
  EXPECT_EQ(call({"--fleet", "get", "vehicleid"}).out, "U1  vehicleid  A\nU2  vehicleid  B\n");
  EXPECT_EQ(call({"--fleet", "U[2]", "list", "v*", "--format", "{unit}={value} {topic}"}).out,
            "U2=B fleet/U2/var/vehicleid\n");
  EXPECT_THAT(call({"--fleet"}).out, MatchesRegex("UNIT +NAME +VALUE +AGE +SOURCE\n"
                                                  "U1 +vehicleid +A +[0-9]+ [a-z]+ +rt/.*\n"
                                                  "U2 +vehicleid +B .*\n"));
  const Json listed = json_of({"list", "--json", "--fleet=U1"});
  EXPECT_EQ(listed["unit"].get<std::string>() + listed["value"].get<std::string>(), "U1A");
  EXPECT_THAT(listed["since"].get<std::string>(), MatchesRegex("20..-..-..T..:..:..[.]...Z"));
  EXPECT_THAT(call({"--fleet", "watch", "--count", "2", "--json"}).out,
              AllOf(HasSubstr(R"("unit":"U1","name":"vehicleid","value":"A","retained":true)"),
                    HasSubstr(R"("unit":"U2","name":"vehicleid","value":"B","retained":true)")));
  EXPECT_EQ(call({"--fleet", "U1", "get", "hwversion"}, 4).all, "quilctl: U1: hwversion has no value\n");

  bus.subscribe("fleet/U2/presence");
  second.uplink->signal(SIGKILL);
  ASSERT_TRUE(bus.wait_for_text("fleet/U2/presence", "lost"));
  EXPECT_THAT(call({"--fleet", "status"}).out, MatchesRegex("UNIT +PRESENCE +CONNECTED SINCE +DAEMON\n"
                                                            "U1 +online +20..-..-.. ..:..:..[.]... +-\n"
                                                            "U2 +lost +20..-..-.. ..:..:..[.]... +-\n"
                                                            "1 of 2 units online\n"));
  EXPECT_EQ(json_of({"--fleet", "U1", "status", "--json"})["presence"], "online");
  call({"--fleet", "U2", "status"}, 6);
  EXPECT_THAT(call({"--fleet", "retire", "U2"}, 2).all, HasSubstr("give --yes"));
  EXPECT_EQ(call({"--fleet", "retire", "U2", "--yes"}).all, "quilctl: 3 topics of U2 cleared\n");
  EXPECT_THAT(call({"--fleet", "retire", "U2", "--yes"}, 3).all, HasSubstr("no unit is named 'U2'"));
  bus.publish("fleet/U1/var/", R"({"value":"nameless","since":null,"stamp":1,"daemon":null})", true, 1);
  EXPECT_EQ(call({"--fleet", "list"}).out, call({"--fleet", "list", "vehicleid"}).out);
  EXPECT_THAT(call({"--fleet", "retire", "U1", "--yes"}).all,
              AllOf(HasSubstr("U1 is online: its variables come back"), HasSubstr("4 topics of U1 cleared")));
}

TEST_F(QuilctlFleetTest, AMessageThatCannotBeReadIsOneLine) {
  bus.publish("fleet/U1/var/bad", "\x1b[2J{", true);
  bus.publish("fleet/U1/presence", "asleep", true);
  bus.publish("fleet/U\xe2\x80\x8e/var/good",
              R"({"value":"\u001b[2J\u009b","since":null,"stamp":1,"daemon":null})", true, 1);
  const std::string all = call({"--fleet"}, 6).all;
  EXPECT_THAT(all, AllOf(HasSubstr("quilctl: cannot read the message on fleet/U1/var/bad\n"),
                         HasSubstr("quilctl: cannot read the message on fleet/U1/presence\n"),
                         HasSubstr(R"(U\xe2\x80\x8e  good  \x1b[2J\xc2\x9b  -    -)"), Not(HasSubstr("\x1b")),
                         HasSubstr("quilctl: no unit is online: these values were published last\n")));
}

TEST_F(QuilctlFleetTest, FollowsTheBrokerOverAnOutage) {
  bus.publish("fleet/U1/presence", "online", true, 1);
  bus.publish("fleet/U1/var/a", R"({"value":"x","since":null,"stamp":1,"daemon":null})", true, 1);
  Process watch(command({"--fleet", "watch"}));
  ASSERT_TRUE(watch.wait_for_output("U1  a  x\n"));
  broker.restart();
  EXPECT_TRUE(watch.wait_for_output("U1  a  (no value)\n")) << "it retains nothing";
  broker.stop();
  EXPECT_THAT(call({"--fleet", "status", "--json"}, 7).out,
              HasSubstr(R"("reachable":false,"reason":"broker /)"));
}

TEST_F(QuilctlFleetTest, RefusesWhatItCannotDo) {
  bus.publish("fleet/U1/presence", "online", true, 1);
  for (const auto& [words, code, reason] :
       std::vector<std::tuple<std::vector<std::string>, int, std::string>>{
           {{"--fleet", "param", "list"}, 2, "--fleet: not for 'list'"},
           {{"--fleet", "secstore", "get", "master"}, 2, "--fleet: not for 'get'"},
           {{"--fleet", "decode"}, 2, "--fleet: not for 'decode'"},
           {{"--fleet", "list", "--shell"}, 2, "--fleet: not with --shell and --expect"},
           {{"--fleet", "get", "vehicleid", "--raw"}, 2, "--raw: for one value only"},
           {{"--fleet=a/b"}, 2, "'a/b' is not one level of a topic"},
           {{"--fleet", "--fleet-prefix", "#"}, 2, "'#' is not one level of a topic"},
           {{"retire", "U1"}, 2, "retire needs --fleet"},
           {{"--fleet", "U1", "retire", "U2"}, 2, "--fleet: retire names its unit itself"},
           {{"--fleet", "U2", "status"}, 3, "no unit is named 'U2'"},
           {{"--fleet", "U2", "get", "vehicleid", "--wait", "0.1"}, 27, "no unit is named 'U2'"},
           {{"--fleet", "--fleet-prefix", "trucks"}, 3, "no unit is known"},
           {{"--fleet", "list", "vehicleidd"}, 3, "did you mean 'vehicleid'?"},
       }) {
    EXPECT_THAT(call(words, code).all, HasSubstr(reason));
  }
  const Broker guarded("allow_anonymous true\nacl_file " +
                       dir.write("acl", "topic read #\nuser writer\ntopic readwrite #\n"));
  BusClient writer(guarded.port(), "", "writer");
  writer.publish("fleet/U1/var/a", "x", true, 1);
  const std::vector<std::string> retire{
      PROGRAM_DIR "/quilctl", "--fleet", "retire", "U1", "--yes", "--timeout", "2", "--host",
      guarded.socket_path()};
  Process denied(retire);
  EXPECT_EQ(denied.wait(), 5);
  EXPECT_THAT(denied.output(),
              HasSubstr("1 of 1 topics remain, such as fleet/U1/var/a: the broker's access rules"));

  const std::string topics = "abcdefghij";
  for (const char topic : topics) {
    writer.publish(std::string("fleet/U1/var/") + topic, "x", true, 1);
  }
  Process slow(retire);
  for (const char topic : topics) {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    writer.publish(std::string("fleet/U1/var/") + topic, "", true, 1);
  }
  EXPECT_EQ(slow.wait(), 0) << "longer than the time limit: " << slow.output();
}

}  // namespace
}  // namespace tests
