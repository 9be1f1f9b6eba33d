#include <nlohmann/json.hpp>

#include "support/datagram_socket.h"
#include "system/daemon.h"

namespace tests {
namespace {

using Json = nlohmann::json;

/// The brokers of a unit and of a fleet, and the uplink between them.
class UplinkTest : public testing::Test {
 protected:
  UplinkTest() { fleet.subscribe("fleet/#"); }

  void start(const std::string& more = "unit = U1\n") { start(more, unit_broker); }
  void start(const std::string& more, const Broker& bus) {
    const std::string file =
        dir.write("uplink.conf",
                  config_for(fleet_broker.port(), "bus_host = 127.0.0.1\nreconnect_spread = 1\nbus_port = " +
                                                      std::to_string(bus.port()) + '\n' + more));
    uplink.emplace(std::vector<std::string>{"/usr/bin/env", environment, PROGRAM_DIR "/tolquil-uplink", "-c",
                                            file, "-l", "DEBUG"});
  }

  /// As the daemon publishes a variable.
  void publish(const std::string& name, const std::string& value) {
    unit.publish("system/var/" + name, variable_message(value, ++stamp).payload, true);
  }

  /// Whether the fleet receives the variable with this value.
  bool arrives(const std::string& topic, const std::string& value) {
    return fleet
        .wait_for(topic, [&](const BusMessage& message) { return value == value_in(message.payload); })
        .has_value();
  }
  static std::string value_in(const std::string& payload) {
    return payload.empty() ? "" : Json::parse(payload).at("value").get<std::string>();
  }
  /// The payloads of a topic that have arrived so far, or their values.
  [[nodiscard]] std::vector<std::string> received(const std::string& topic) const {
    std::vector<std::string> all;
    for (const BusMessage& message : fleet.history()) {
      if (message.topic == topic) {
        all.push_back(message.payload.starts_with('{') ? value_in(message.payload) : message.payload);
      }
    }
    return all;
  }
  TempDir dir;
  Broker unit_broker, fleet_broker;
  BusClient unit{unit_broker.port()}, fleet{fleet_broker.port()};
  std::uint64_t stamp = 0;
  std::string environment = "NOTIFY_SOCKET=";
  std::optional<Process> uplink;
};

TEST_F(UplinkTest, SendsEachChangeOnceAndNothingElseOfTheUnit) {
  publish("vehicleid", "A");
  unit.publish("system/presence/quil", "online", true);
  start("unit = U1\nmin_interval = 0\nvariables = vehicle*, last\n");
  ASSERT_TRUE(arrives("fleet/U1/var/vehicleid", "A"));
  ASSERT_TRUE(fleet.wait_for_text("fleet/U1/presence", "online"));
  for (const char* value : {"A", "A", "B", "B", "A"}) {
    publish("vehicleid", value);
  }
  for (int repetition = 0; repetition < 3; ++repetition) {
    unit.publish("system/var/vehicletype", "damaged");
    publish("vehicletype", "fits");
    publish("hwversion", std::string(5000, 'x'));
    publish("vehicletype", std::string(4097, 'x'));
    publish("vehicle/id", "x");
    unit.publish("system/presence/quil", "asleep");
  }
  unit.publish("system/sysparams", "secret");
  unit.publish("system/quil/secstore/getmaster", "secret");
  unit.publish("system/var/vehicletype", framed(ecu::tamu::pb::EcuVariable()).payload, true);
  publish("last", "1");
  ASSERT_TRUE(arrives("fleet/U1/var/last", "1"));
  EXPECT_EQ(received("fleet/U1/var/vehicleid"), (std::vector<std::string>{"A", "B", "A"}));
  std::vector<std::string> presence = received("fleet/U1/daemon");
  const std::size_t others = fleet.history().size() - presence.size();
  std::erase(presence, "");  // until the bus was up
  EXPECT_EQ(presence, std::vector<std::string>{"online"});
  EXPECT_THAT(received("fleet/U1/connected_since"),
              testing::ElementsAre(testing::MatchesRegex("20..-..-..T..:..:..[.]...Z")));
  EXPECT_EQ(others, 7U);
  ASSERT_TRUE(uplink->wait_for_output("the daemon's presence is neither"));
  EXPECT_EQ(count(uplink->output(), "WARNING"), 3) << "vehicletype, vehicle/id, presence\n"
                                                   << uplink->output();
  EXPECT_EQ(count(uplink->output(), "ERROR"), 0);

  BusClient late(fleet_broker.port());
  late.subscribe("fleet/#");
  const auto retained = late.wait_for("fleet/U1/var/vehicleid");
  ASSERT_TRUE(retained);
  EXPECT_TRUE(retained->retained);
  EXPECT_EQ(retained->qos, 1);
  const Json message = Json::parse(retained->payload);
  EXPECT_EQ(message.at("stamp"), 6);
  EXPECT_EQ(message.at("daemon"), "online");
  EXPECT_THAT(message.at("since").get<std::string>(), testing::MatchesRegex("20..-..-..T..:..:..[.]...Z"));
}

TEST_F(UplinkTest, FetchesWhatItMissedAfterALossThatItNoticesAndOnceARefresh) {
  for (const std::string refresh : {"0", "1"}) {
    Broker narrow("allow_anonymous true\nmax_queued_messages 10");
    BusClient talker(narrow.port());
    const auto change = [&](const std::string& name, const std::string& value) {
      talker.publish("system/var/" + name, variable_message(value, ++stamp).payload, true);
    };
    const std::string tree = "fleet/U" + refresh + "/var/";
    start("unit = U" + refresh + "\nmin_interval = 0\nvariables = vehicleid, later\nrefresh = " + refresh +
              '\n',
          narrow);
    change("vehicleid", "old");
    ASSERT_TRUE(arrives(tree + "vehicleid", "old"));
    uplink->signal(SIGSTOP);
    for (int flood = 0; flood < 200; ++flood) {
      talker.publish("system/var/other", std::string(60'000, 'x'));
    }
    ASSERT_TRUE(narrow.wait_for_log("messages are being dropped"));
    change("vehicleid", "new");
    talker.subscribe("end");  // answered after the change
    uplink->signal(SIGCONT);
    do {
      change("later", "");
    } while (!fleet.wait_for(tree + "later", nullptr, 100ms));
    if (refresh == "0") {
      EXPECT_THAT(received(tree + "vehicleid"), ElementsAre("old"));
      talker.publish("system/var/other", std::string(1'100'000, 'x'));  // more than may wait
    }
    EXPECT_TRUE(arrives(tree + "vehicleid", "new")) << uplink->output();
  }
}

TEST_F(UplinkTest, TheLastOfFastChangesOfAValueOrTheNameCountsAfterTheInterval) {
  for (const auto& [unit_name, name, first, last] :
       {std::tuple{"unit = U1\n", "vehicleid", "fleet/U1/var/vehicleid", "fleet/U1/var/vehicleid"},
        {"", "serialnumber", "fleet/0/var/serialnumber", "fleet/50/var/serialnumber"}}) {
    start(std::string("min_interval = 1\n") + unit_name);
    publish(name, "0");
    ASSERT_TRUE(arrives(first, "0"));
    for (int change = 1; change <= 50; ++change) {
      publish(name, std::to_string(change));
    }
    ASSERT_TRUE(arrives(last, "50"));
  }
  EXPECT_LE(received("fleet/U1/var/vehicleid").size(), 10U) << "a few on a slow machine";
  EXPECT_LE(count(uplink->output(), "the unit's name changes from "), 10) << "a few on a slow machine";
}

TEST_F(UplinkTest, TheValueOfAVariableIsTheNameAndAnotherOneClearsTheOldTopics) {
  unit.publish("system/presence/quil", "online", true);
  publish("vehicleid", "A");
  const DatagramSocket manager;
  const auto expect_no_stop = [&manager] {
    while (const auto notification = manager.receive()) {
      EXPECT_NE(notification, "STOPPING=1");
    }
  };
  environment += manager.path();
  start("min_interval = 0\n");
  ASSERT_TRUE(uplink->wait_for_output("connected to "));
  publish("serialnumber", "not/a/level");
  ASSERT_TRUE(uplink->wait_for_output("'not/a/level' cannot be the unit's name"));
  EXPECT_TRUE(fleet.history().empty());
  publish("serialnumber", "");
  publish("serialnumber", "S1");
  ASSERT_TRUE(arrives("fleet/S1/var/vehicleid", "A"));
  fleet_broker.freeze();
  for (const char* name : {"S3", "S4", "S2"}) {
    publish("serialnumber", name);
    ASSERT_TRUE(uplink->wait_for_output(std::string(" to ") + name));
    expect_no_stop();
  }
  fleet_broker.thaw();
  ASSERT_TRUE(arrives("fleet/S2/var/vehicleid", "A"));
  ASSERT_TRUE(arrives("fleet/S2/var/serialnumber", "S2"));
  ASSERT_TRUE(fleet.wait_for_text("fleet/S2/daemon", "online"));
  ASSERT_TRUE(fleet.wait_for_text("fleet/S2/presence", "online"));
  ASSERT_TRUE(fleet.wait_for("fleet/S2/connected_since"));
  expect_no_stop();
  EXPECT_EQ(count(uplink->output(), "cannot be the unit's name"), 1);
  BusClient late(fleet_broker.port());
  late.subscribe("#");
  late.publish("end", "");
  ASSERT_TRUE(late.wait_for("end"));
  std::vector<std::string> topics;
  for (const BusMessage& message : late.history()) {
    topics.push_back(message.topic);
  }
  EXPECT_THAT(topics, testing::UnorderedElementsAre("fleet/S2/var/serialnumber", "fleet/S2/var/vehicleid",
                                                    "fleet/S2/daemon", "fleet/S2/presence",
                                                    "fleet/S2/connected_since", "end"));
}

TEST_F(UplinkTest, TheDaemonsPresenceIsClearedWhileTheUnitsBusIsAway) {
  BusClient(fleet_broker.port()).publish("fleet/U1/daemon", "online", true, 1);  // of an earlier run
  ASSERT_TRUE(fleet.wait_for_text("fleet/U1/daemon", "online"));
  unit_broker.stop();
  start("unit = U1\nmin_interval = 0\n");
  for (int outage = 0; outage < 2; ++outage) {
    ASSERT_TRUE(fleet.wait_for_text("fleet/U1/daemon", ""));
    unit_broker.restart();
    BusClient(unit_broker.port()).publish("system/presence/quil", "online", true, 1);
    ASSERT_TRUE(fleet.wait_for_text("fleet/U1/daemon", "online"));
    unit_broker.stop();
  }
  ASSERT_TRUE(fleet.wait_for_text("fleet/U1/daemon", ""));
  EXPECT_EQ(received("fleet/U1/daemon"),
            (std::vector<std::string>{"online", "", "online", "", "online", ""}));
}

TEST_F(UplinkTest, PresenceTellsAStopFromALoss) {
  for (const auto& [signal, presence] : {std::pair{SIGTERM, "offline"}, {SIGKILL, "lost"}}) {
    start();
    ASSERT_TRUE(fleet.wait_for_text("fleet/U1/presence", "online"));
    uplink->signal(signal);
    EXPECT_EQ(uplink->wait(std::chrono::seconds(20)), signal == SIGTERM ? 0 : -SIGKILL);
    EXPECT_TRUE(fleet.wait_for_text("fleet/U1/presence", presence));
  }
}

TEST_F(UplinkTest, AFleetThatIsAwayGetsTheLatestValuesWhenItIsBack) {
  start("unit = U1\nmin_interval = 0\n");
  publish("vehicleid", "A");
  publish("hwversion", "r08");
  ASSERT_TRUE(arrives("fleet/U1/var/hwversion", "r08"));
  fleet_broker.stop();
  ASSERT_TRUE(uplink->wait_for_output("lost: "));
  for (const char* value : {"B", "C", "D"}) {
    publish("vehicleid", value);
  }
  fleet_broker.restart();
  BusClient office(fleet_broker.port());
  office.subscribe("fleet/#");
  const auto is_last = [](const BusMessage& message) { return value_in(message.payload) == "D"; };
  EXPECT_TRUE(office.wait_for("fleet/U1/var/vehicleid", is_last));
  EXPECT_TRUE(office.wait_for("fleet/U1/var/hwversion"));
  EXPECT_TRUE(office.wait_for_text("fleet/U1/presence", "online"));
}

TEST_F(UplinkTest, ASimulatedFleetChangesValuesReturnsToItsBrokerAndStopsInOrder) {
  Process simulation({PROGRAM_DIR "/ecusim", "fleet", "2", "--host", "127.0.0.1", "--port",
                      std::to_string(fleet_broker.port()), "--spread", "1", "--change", "1"});
  EXPECT_TRUE(arrives("fleet/unit-00001/var/vehicleid", "1M8GDM9AXKP042788"));
  EXPECT_TRUE(arrives("fleet/unit-00002/var/topversion", "change 1"));
  fleet_broker.restart();
  BusClient office(fleet_broker.port());
  office.subscribe("fleet/#");
  for (const char* topic : {"fleet/unit-00001/presence", "fleet/unit-00002/presence"}) {
    EXPECT_TRUE(office.wait_for_text(topic, "online"));
  }
  simulation.signal(SIGTERM);
  EXPECT_EQ(simulation.wait(), 0) << simulation.output();
  EXPECT_TRUE(office.wait_for_text("fleet/unit-00002/presence", "offline"));
}

TEST_F(UplinkTest, AFaultyConfigurationEndsItAtOnce) {
  start("unit = a/b\n");
  EXPECT_EQ(uplink->wait(), 1);
  EXPECT_THAT(uplink->output(), testing::HasSubstr("line 6: key 'unit': 'a/b' is not one level of a topic"));
}

}  // namespace
}  // namespace tests
