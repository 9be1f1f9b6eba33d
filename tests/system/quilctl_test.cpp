#include "system/quilctl_fixture.h"

namespace tests {
namespace {

TEST_F(QuilctlTest, DistinguishesAValueFromNoValueAndFromAnUnknownName) {
  start_all();
  publish_variant("R08_B1");
  EXPECT_EQ(call({"get", "hwvariant", "--wait", "20"}).out, "R08_B1\n");
  EXPECT_EQ(call({"get", "hwvariant", "--raw"}).out, "R08_B1");
  EXPECT_EQ(json_of({"get", "topversion", "--json"})["value"], "TV 1");
  EXPECT_THAT(call({"get", "vehicleid"}, 4).all, HasSubstr("quilctl: vehicleid has no value\n"));
  EXPECT_THAT(call({"get", "nothing"}, 3).all, HasSubstr("no variable is named 'nothing'"));
  EXPECT_THAT(call({"get", "vehicelid"}, 3).all, HasSubstr("'vehicelid'; did you mean 'vehicleid'?\n"));
  EXPECT_THAT(call({"get", "zz*"}, 3).all, HasSubstr("no variable matches 'zz*'"));
  EXPECT_EQ(call({"get", "topv*", "hwvariant"}).out, "topversion  TV 1\nhwvariant  R08_B1\n");
  EXPECT_EQ(call({"get", "hwversion", "vehicleid"}, 4).out, "hwversion  r08\n");
  EXPECT_EQ(call({"get", "hwversion", "vehicleid", "--default", "?"}).out, "hwversion  r08\nvehicleid  ?\n");
  EXPECT_EQ(call({"list", "vehicleid", "hwv*", "--shell"}).out,
            "unset vehicleid\nhwversion='r08'\nhwvariant='R08_B1'\n");
  EXPECT_EQ(call({"list", "hwvariant", "--format", "{topic} {value}"}).out, "system/var/hwvariant R08_B1\n");
  EXPECT_EQ(call({"get", "vehicleid", "--wait", "0.2"}, 27).out, "");
  bus.publish("system/var/odd", "junk", true, 1);
  EXPECT_THAT(call({"get", "odd"}, 1).all, HasSubstr("cannot decode the message on system/var/odd"));

  std::map<std::string, Json> listed;
  std::istringstream lines(call({"list", "--json"}).out);
  for (std::string line; std::getline(lines, line);) {
    listed[Json::parse(line)["name"]] = Json::parse(line);
  }
  EXPECT_EQ(listed.size(), 32u) << "those of the catalogue, and the one that cannot be decoded";
  EXPECT_EQ(listed["hwversion"]["value"], "r08");
  EXPECT_LT(listed["hwversion"]["age_s"], 60);
  EXPECT_EQ(listed["vehicleid"]["value"], nullptr);
  EXPECT_THAT(call({"list"}).out, HasSubstr("\nhwvariant            R08_B1 "));
  const std::string status = call({"status"}).out;
  EXPECT_THAT(status, HasSubstr("reachable (address from --host)\ndaemon      on line, started "));
  EXPECT_THAT(status, HasSubstr("\nno value    serialnumber vehicleid versionhypervisor "));
  EXPECT_EQ(json_of({"status", "--json"})["parameters_cached"], 2);
}

TEST_F(QuilctlTest, AListWaitsForTheExpectedValues) {
  start_all();
  const std::string expect =
      dir.write("expect", R"({"expect": {"hwversion": "r08", "vehicleid": "", "sysparam/17": "\u0000ab"}})");
  Process list(command({"list", "--expect", expect}));
  publish_variant("R08_B1");
  call({"param", "set", "17=hex:006162"});
  EXPECT_EQ(list.wait(), 0);
  EXPECT_THAT(list.standard_output(),
              testing::ContainsRegex("hwversion +r08 .*\nsysparam/17 +\\\\x00ab "
                                     "(.|\n)*\n2 variables and 1 parameter as expected after [0-9.]+ s\n$"));
  publish_variant("R09_C1");
  call({"get", "hwversion"});
  EXPECT_THAT(
      call({"list", "--expect", expect, "--timeout", "0.5"}, 1).all,
      HasSubstr(
          "hwversion: expected \"r08\", has \"r09\"\nquilctl: 1 of 3 values not as expected within 0.5 s\n"));
  EXPECT_THAT(call({"list", "--expect", dir.write("expect", R"({"expect": {"hwversionn": "r08"}})")}, 3).all,
              HasSubstr("did you mean 'hwversion'?"));
  EXPECT_EQ(call({"list", "--expect", dir.write("expect", "[")}, 2).out, "");
}

TEST_F(QuilctlTest, ReportsAMissingDaemonOrBrokerAtOnce) {
  call({"get", "vehicleid"}, 6);
  call({"param", "list", "--timeout", "2"}, 6);
  EXPECT_THAT(call({"list"}, 6).all, HasSubstr("quilctl: no variable is published: "));
  EXPECT_THAT(call({"status", "--json", "--timeout", "2"}, 6).out, HasSubstr(R"("daemon_on_line":null,)"));
  bus.publish("system/var/topversion", Group().message().payload, true, 1);
  EXPECT_EQ(call({"get", "vehicleid"}, 4).out, "") << "a daemon without presence has run";
  bus.publish(presence_topic, "offline", true);
  EXPECT_THAT(call({"param", "set", "1=2"}, 6).all, HasSubstr("quilctl: the daemon is off line\n"));
  EXPECT_THAT(call({}, 6).all, HasSubstr("the daemon is off line")) << "lists";
  broker.stop();
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"list"}, {"watch"}, {"status"}, {"decode"}, {"secstore", "get", "master"}}) {
    EXPECT_THAT(call(words, 7).all,
                HasSubstr("quilctl: broker " + broker.socket_path() + " not reachable: "));
  }
  EXPECT_THAT(call({"status", "--json"}, 7).out,
              testing::MatchesRegex(".*\"reachable\":false,\"reason\":\"broker .* not reachable: .*\"}\n"));
  const Broker closed("allow_anonymous false");
  Process list(
      {PROGRAM_DIR "/quilctl", "list", "--host", "localhost", "--port", std::to_string(closed.port())});
  EXPECT_EQ(list.wait(), 7);
  EXPECT_THAT(list.output(), HasSubstr(" rejects the login: not authorised; check --user"));
  Process simulator({PROGRAM_DIR "/ecusim", "-p", std::to_string(closed.port())});
  EXPECT_TRUE(simulator.wait_for_output(" rejects the login: not authorised; check --user"));
  simulator.signal(SIGTERM);
  EXPECT_EQ(simulator.wait(), 0);
  EXPECT_THAT(simulator.output(), testing::Not(HasSubstr("Refused")));
  broker.start();
  const std::string nodes = broker.socket_path() + ",127.0.0.1:" + std::to_string(closed.port());
  Process fleet({PROGRAM_DIR "/ecusim", "fleet", "1", "--spread", "0", "--host", nodes});
  EXPECT_TRUE(fleet.wait_for_output("ecusim: unit-00001: no connection: Connection Refused: not authorised"));
  BusClient of_fleet(broker.port());
  of_fleet.subscribe("fleet/unit-00001/presence");
  EXPECT_TRUE(of_fleet.wait_for_text("fleet/unit-00001/presence", "online"));
  const std::string faulty = dir.write("faulty", "quilctl-recording 1\n0.0 \"rt/x\" \"1\"\nx\n");
  EXPECT_THAT(call({"replay", faulty}, 1).all, HasSubstr(faulty + ":3: ")) << "before anything is published";
}

TEST_F(QuilctlTest, InvalidArgumentsAreWrongUsage) {
  const std::map<std::string, std::string> values{{"FAULTY", dir.write("faulty", "host = a\nport = 0\n")},
                                                  {"ABSENT", dir.path("absent")},
                                                  {"TOO_LONG", "17=" + std::string(65'505, 'x')}};
  std::istringstream lines(
      "nothing|help nothing|--json help|get|get a b --raw|get a* --raw|get a --raw --json|list --raw|"
      "list --shell --json|list --format {nam}|list --expect FAULTY vehicleid|list --timeout nan|"
      "list --port 0|list --port 0x10|list --config ABSENT|list --config FAULTY|list --config /dev/zero|"
      "list --cafile ABSENT|list --cert FAULTY --cafile FAULTY|list --cert FAULTY --key FAULTY|"
      "list --password-file FAULTY|list --user u --password-file ABSENT|"
      "list --user u --password-file /dev/zero|watch --exec true --table|watch --table --count 1|"
      "decode a/#/b|record - --topics a+|param get 1 2 --raw|param get 12abc|param set 17|"
      "param set 17=hex:0|param set 17=a 0x11=b|param set TOO_LONG|param set 17=@/dev/zero|"
      "secstore set master in-clear|secstore set master -|secstore get third");
  for (std::string line; std::getline(lines, line, '|');) {
    std::istringstream text(line);
    std::vector<std::string> words;
    for (std::string word; text >> word;) {
      const auto value = values.find(word);
      words.push_back(value == values.end() ? word : value->second);
    }
    EXPECT_EQ(call(words, 2).out, "") << line;
  }
}

TEST_F(QuilctlTest, ParametersAreWrittenAndReadBack) {
  start_all();
  EXPECT_EQ(call({"param", "get", "0xa009"}).out, "TV 1\n");
  EXPECT_EQ(call({"param", "get", "17", "0xa009"}).out, "0x11  \\x00\\xff\n0xa009  TV 1\n");
  EXPECT_THAT(call({"param", "get", "17", "5"}, 3).all, HasSubstr("no such parameter: 0x5"));
  EXPECT_EQ(call({"param", "set", "0xa009=hex:0aff", "5=@" + dir.write("value", "five")}).out,
            "0xa009  \\x0a\\xff\n0x5  five\n");
  EXPECT_EQ(json_of({"param", "get", "0xa009", "--json"})["value"]["hex"], "0aff");
  EXPECT_EQ(call({"param", "get", "5", "--raw"}).out, "five");
  EXPECT_EQ(call({"param", "set", "5="}).out, "0x5  \"\"\n");
}

TEST_F(QuilctlTest, AWriteWithoutEffectIsNotReportedAsDone) {
  start_all(R"(, "answer_writes": false)");
  EXPECT_EQ(call({"param", "set", "17=hex:00ff"}).code, 0) << "it has this value";
  EXPECT_THAT(call({"param", "set", "17=new", "--timeout", "3"}, 27).all, HasSubstr("no reply within 3 s"));
}

// The daemon answers no request while a write is under way. Then several writers start at the same time, and
// it discards all writes but the first.
TEST_F(QuilctlTest, WritesSucceedWhileOthersReadAndWrite) {
  start_all(R"(, "answer_after_ms": 200)");
  std::atomic_bool enough = false;
  const auto read = [&] {
    while (!enough) {
      call({"param", "list"}, std::nullopt);
    }
  };
  const std::array readers{std::async(std::launch::async, read), std::async(std::launch::async, read)};
  const auto write = [&](const std::string& id) {
    for (const char* value : {"=a", "=b", "=c"}) {
      call({"param", "set", id + value});
    }
  };
  std::vector<std::future<void>> writers;
  for (const char* id : {"17", "19", "23"}) {
    writers.push_back(std::async(std::launch::async, write, id));
  }
  writers.clear();  // waits for them
  enough = true;
  EXPECT_EQ(call({"param", "get", "17", "19", "23"}).out, "0x11  c\n0x13  c\n0x17  c\n");
}

TEST_F(QuilctlTest, AWriteThatTheDaemonDiscardsIsRefused) {
  start_surroundings();
  start_daemon();
  EXPECT_THAT(call({"param", "get", "17"}, 3).all, HasSubstr("no parameters received from the other side"));
  EXPECT_THAT(call({"param", "list"}).all, HasSubstr("quilctl: no parameters received from the other side"));
  EXPECT_EQ(call({"param", "set", "17=new"}, 5).out, "");
}

TEST_F(QuilctlTest, SecretsAreConfirmedAndShownOnlyOnRequest) {
  start_surroundings();
  start_daemon();
  const std::string file = dir.write("secret", "s3cr3t\xff");
  EXPECT_EQ(call({"secstore", "get", "master"}, 4).out, "");
  EXPECT_EQ(call({"secstore", "set", "master", "@" + file}).all, "");
  EXPECT_EQ(call({"secstore", "get", "master"}).out, "s3cr3t\xff");
  EXPECT_EQ(json_of({"secstore", "get", "master", "--json"})["hex"], "733363723374ff");
  const std::string secrets = "system/quil/secstore/#";
  EXPECT_THAT(call({"decode", secrets, "--count", "1"}).all,
              HasSubstr("\npayload: redacted (--reveal shows it)\n"));
  EXPECT_THAT(call({"decode", secrets, "--count", "1", "--reveal"}).all,
              HasSubstr("\npayload: hex 733363723374ff\n"));
  using std::filesystem::perms;
  const std::string recording = dir.write("recording", "");
  std::filesystem::permissions(recording, perms::all);
  call({"record", recording, "--reveal", "--duration", "0.1"});
  EXPECT_EQ(std::filesystem::status(recording).permissions(), perms::owner_read | perms::owner_write);
  surroundings.reset();
  EXPECT_THAT(call({"secstore", "set", "remote", "@" + file, "--timeout", "3"}, 27).all,
              HasSubstr("not confirmed within 3 s"));
}

TEST_F(QuilctlTest, ChecksAConfigurationFileAsTheDaemonDoes) {
  const std::string file = dir.write("conf", "port = 1\nfoo\nport = x\nlogmode = loud\nbar = 1\n");
  EXPECT_EQ(call({"check", file}, 1).out,
            file + ":2: error: 'foo' does not begin a line of the form key = value\n" + file +
                ":3: error: key 'port' is already set in line 1\n" + file +
                ":3: error: key 'port': 'x' is not a port, 1 to 65535\n" + file +
                ":4: warning: key 'logmode': 'loud' is not one of syslog, stdout, stderr\n" + file +
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

}  // namespace
}  // namespace tests
