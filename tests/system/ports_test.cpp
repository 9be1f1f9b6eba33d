#include "support/ports.h"

#include <csignal>

#include "system/quilctl_fixture.h"

namespace {

using namespace tests;
using ReconnectionTest = QuilctlTest;

/// A broker, a far side of both ports, and the daemon between them.
class PortsTest : public SystemTest {
 protected:
  PortsTest() {
    far_side.write(parameter_record(0xa009, "TV 1") + parameter_record(0x11, "old") + end_mark());
  }

  // The daemon publishes presence after its subscriptions.
  bool is_up() { return bus.wait_for_text(presence_topic, "online"); }

  FarSide far_side;
  Daemon daemon{config(far_side.config())};
};

TEST_F(PortsTest, SecretsAreRelayedBothWaysAndNeverLogged) {
  ASSERT_TRUE(is_up());
  far_side.write(parameter_record(2, "hush-master") + end_mark());
  EXPECT_TRUE(bus.wait_for_text("system/quil/secstore/getmaster", "hush-master"));
  bus.publish("system/quil/secstore/setremote", "hush-remote");
  EXPECT_TRUE(bus.wait_for_text("system/quil/secstore/getremote", "hush-remote"));
  EXPECT_EQ(far_side.read_frame(), parameter_record(3, "hush-remote") + end_mark());
  EXPECT_EQ(daemon.output().find("hush"), std::string::npos);
}

TEST_F(PortsTest, ARequestThatWaitsForAnAnswerDelaysNothingElse) {
  ASSERT_TRUE(is_up());
  ecu::tamu::pb::SystemParameterList list;
  list.add_entry()->set_ota_id(0x11);
  bus.publish("system/sysparams/write", framed(list).payload);
  EXPECT_FALSE(far_side.read_frame().empty());
  bus.publish("system/quil/request/sysparams", std::string_view());
  bus.publish("rt/system/hw_variant", hardware_variant("R08_B1"));
  EXPECT_TRUE(bus.wait_for("system/var/hwvariant"));
  bus.publish("rt/io/kl15", Group().message().payload);
  EXPECT_TRUE(daemon.wait_for_output("ERROR no signal: kl15 on topic: rt/io/kl15"));
  bus.publish("system/quil/secstore/setmaster", "x");
  EXPECT_TRUE(bus.wait_for_text("system/quil/secstore/getmaster", "x"));
  EXPECT_FALSE(bus.wait_for("system/sysparams", nullptr, std::chrono::milliseconds(0)));
  daemon.signal(SIGTERM);
  EXPECT_EQ(daemon.wait(), 0);
}

TEST_F(SystemTest, TheServiceManagerFollowsTheDaemonTheReceivePortAndTheBroker) {
  const TempDir dir;
  DatagramSocket manager;
  std::optional<PseudoTerminal> far_side(std::in_place);
  replace_link(dir.path("receive"), far_side->path());
  Daemon daemon(config("qpread = " + dir.path("receive") + "\n"), {"-L"},
                {"NOTIFY_SOCKET=" + manager.path(), "WATCHDOG_USEC=200000"});
  const auto expect = [&](std::initializer_list<const char*> states) {
    for (const char* state : states) {
      EXPECT_TRUE(manager.wait_for(HasSubstr(state))) << state;
    }
  };
  expect({"STATUS=Starting", "READY=1\nSTATUS=", "WATCHDOG=1", "WATCHDOG=1"});
  ASSERT_TRUE(bus.wait_for_text(presence_topic, "online"));
  far_side.reset();
  expect({"STATUS=on line; receive port away since ", "WATCHDOG=1", "WATCHDOG=1"});
  far_side.emplace();
  far_side->write(parameter_record(0xa009, "TV back") + end_mark());
  replace_link(dir.path("receive"), far_side->path());
  EXPECT_TRUE(manager.wait_for("STATUS=on line"));
  EXPECT_TRUE(comes(bus, "system/var/topversion", "TV back"));
  broker.stop();
  expect({"STATUS=broker not reachable: ", "WATCHDOG=1"});
  broker.restart();
  expect({"STATUS=on line"});
  daemon.signal(SIGTERM);
  expect({"STOPPING=1"});
  EXPECT_EQ(daemon.wait(), 0);
}

TEST_F(ReconnectionTest, DaemonAndSimulatorReconnectWhicheverIsRestarted) {
  bus.subscribe("system/#");
  start_all();
  surroundings->signal(SIGTERM);
  ASSERT_EQ(surroundings->wait(), 0);
  start_surroundings(R"({"parameters": [{"id": "0xa009", "text": "TV 2"}]})");
  ASSERT_TRUE(comes(bus, "system/var/topversion", "TV 2"));
  // Twice, because the simulator may see the daemon for the first time only after the first restart.
  for (int restart = 0; restart < 2; ++restart) {
    daemon->signal(SIGKILL);
    daemon->wait();
    ASSERT_TRUE(bus.wait_for_text(presence_topic, "offline"));
    start_daemon();
  }
  EXPECT_TRUE(comes(bus, "system/var/topversion", "TV 2"));
}

/// The daemon sends its first request when the ignition has been on for a whole period of 12 s.
TEST_F(SystemTest, TheVinIsRequestedUntilItIsConfirmed) {
  const std::string request_topic = "rt/j1939can/tx/rqst_fb_ee";
  bus.subscribe(request_topic);
  Daemon daemon(config());
  ASSERT_TRUE(bus.wait_for_text(presence_topic, "online"));
  bus.publish("rt/io/kl15", Group().bytes("kl15", "\x01").status(3).message().payload);
  const auto request = bus.wait_for(request_topic, nullptr, std::chrono::seconds(40));
  ASSERT_TRUE(request);
  EXPECT_NE(request->payload.find(std::string("\xec\xfe\0\0", 4)), std::string::npos);
  const auto answer = Group().bytes("data", "1M8GDM9AXKP042788").value("nof_bytes", 17).message().payload;
  for (int reception = 0; reception < 5; ++reception) {
    EXPECT_FALSE(bus.wait_for("system/var/vehicleid", nullptr, std::chrono::milliseconds(0)));
    bus.publish("rt/j1939can/rx/vi_00", answer);
  }
  const auto vin = bus.wait_for("system/var/vehicleid");
  ASSERT_TRUE(vin);
  EXPECT_NE(vin->payload.find("1M8GDM9AXKP042788"), std::string::npos);
  EXPECT_TRUE(daemon.wait_for_output("Received 5/5 to confirm VIN :1M8GDM9AXKP042788"));
}

}  // namespace
