#include "uplink/uplink.h"

#include <ecu/tamu/date_time.h>

#include "common/fleet_message.h"
#include "support/broker.h"
#include "support/bus_client.h"
#include "support/rt_messages.h"
#include "support/temp_dir.h"
#include "support/testing.h"
#include "uplink/change_filter.h"
#include "uplink/fault_reports.h"
#include "uplink/unit_clock.h"
#include "uplink/uplink_settings.h"

namespace {

using namespace ecu::uplink;

class ChangeFilterTest : public testing::Test {
 protected:
  /// What is sent at this second: "key=text" and the second since which the text holds.
  std::vector<std::string> sent_at(int second) {
    std::vector<std::string> sent;
    filter.send_due(std::chrono::seconds(second), {.booted = std::nullopt, .daemon = daemon},
                    [&](const std::string& key, const auto& value) {
                      sent.push_back(key + "=" + value.text + "@" + std::to_string(value.since / 1s));
                    });
    return sent;
  }

  std::string daemon = "online";
  ChangeFilter filter{{.min_interval = 10s, .refresh = 100s, .max_keys = 4}, {"own", "own too"}};
};

TEST_F(ChangeFilterTest, AChangeIsSentOnceAndAtMostOnceAnInterval) {
  EXPECT_TRUE(filter.take("vin", "A", 1s));
  EXPECT_THAT(sent_at(1), ElementsAre("vin=A@1"));
  EXPECT_TRUE(filter.take("vin", "A", 2s));
  EXPECT_THAT(sent_at(50), IsEmpty());
  EXPECT_TRUE(filter.take("vin", "B", 50s));
  EXPECT_THAT(sent_at(50), ElementsAre("vin=B@50"));
  EXPECT_TRUE(filter.take("vin", "C", 51s));
  EXPECT_EQ(filter.next_due(), 60s);
  EXPECT_TRUE(filter.take("vin", "D", 52s));
  EXPECT_TRUE(filter.take("vin", "D", 53s));
  EXPECT_THAT(sent_at(59), IsEmpty());
  EXPECT_THAT(sent_at(60), ElementsAre("vin=D@52"));
  EXPECT_TRUE(filter.take("vin", "E", 61s));
  EXPECT_TRUE(filter.take("vin", "D", 62s));
  EXPECT_THAT(sent_at(69), IsEmpty());
  EXPECT_THAT(sent_at(70), ElementsAre("vin=D@62")) << "the fleet knows another time";
  EXPECT_TRUE(filter.take("vin", "E", 71s));
  EXPECT_TRUE(filter.take("vin", "D", 62s));
  EXPECT_THAT(sent_at(90), IsEmpty()) << "the fleet knows it already";
}

TEST_F(ChangeFilterTest, EveryValueIsRepeatedOnceARefreshAndOnRequest) {
  EXPECT_EQ(filter.next_due(), BootTime::max());
  (void)filter.take("a", "1", 0s);
  EXPECT_THAT(sent_at(0), ElementsAre("a=1@0"));
  (void)filter.take("b", "2", 30s);
  EXPECT_THAT(sent_at(30), ElementsAre("b=2@30"));
  EXPECT_EQ(filter.next_due(), 100s);
  EXPECT_THAT(sent_at(99), IsEmpty());
  EXPECT_THAT(sent_at(100), ElementsAre("a=1@0"));
  EXPECT_THAT(sent_at(130), ElementsAre("b=2@30"));
  filter.send_all_again();
  EXPECT_THAT(sent_at(131), ElementsAre("a=1@0", "b=2@30"));
  EXPECT_THAT(sent_at(132), IsEmpty());
  ChangeFilter never{{.min_interval = 10s, .refresh = 0s}};
  (void)never.take("a", "1", 0s);
  never.send_due(0s, {}, [](const std::string&, const auto&) {});
  EXPECT_EQ(never.next_due(), BootTime::max());
}

TEST_F(ChangeFilterTest, OnRequestOnlyWhatWasSentInAnotherContextIsRepeated) {
  (void)filter.take("a", "1", 0s);
  EXPECT_THAT(sent_at(0), ElementsAre("a=1@0"));
  daemon = "offline";
  (void)filter.take("b", "2", 1s);
  EXPECT_THAT(sent_at(1), ElementsAre("b=2@1"));
  for (const auto& sent : {std::vector<std::string>{"a=1@0"}, {}}) {
    filter.send_again([](const std::string&, const auto& context) { return context.daemon != "offline"; });
    EXPECT_EQ(sent_at(2), sent);
  }
}

TEST_F(ChangeFilterTest, ItsMemoryIsBounded) {
  EXPECT_TRUE(filter.take("a", "1", 0s));
  EXPECT_TRUE(filter.take("b", "1", 0s));
  EXPECT_FALSE(filter.take("c", "1", 0s));
  EXPECT_TRUE(filter.take("own", "1", 0s)) << "its place is reserved";
  EXPECT_FALSE(filter.take("c", "1", 0s));
  EXPECT_TRUE(filter.take("a", "2", 0s));
  EXPECT_THAT(sent_at(0), ElementsAre("a=2@0", "b=1@0", "own=1@0"));
}

TEST(FaultReportsTest, ASubjectIsReportedAgainOnceItWasUsableAndTenMinutesHavePassed) {
  FaultReports reports;
  EXPECT_TRUE(reports.must_report("a", 0s));
  reports.set_usable("a");
  EXPECT_FALSE(reports.must_report("a", 599s));
  EXPECT_FALSE(reports.must_report("a", 601s)) << "still unusable";
  reports.set_usable("a");
  EXPECT_TRUE(reports.must_report("a", 602s));
  for (int other = 1; other <= 64; ++other) {
    EXPECT_EQ(reports.must_report(std::to_string(other), 700s), other < 64);
  }
}

TEST(FleetMessageTest, IsOneJsonObject) {
  using ecu::tools::fleet_variable_from_json, ecu::tools::to_json;
  const std::string vin =
      R"({"value":"1M8GDM9AXKP042788","since":"2026-11-22T08:00:00.005Z","stamp":1500000000,"daemon":"online"})";
  EXPECT_EQ(to_json({"1M8GDM9AXKP042788", WallTime(1'795'334'400s + 5ms), 1'500'000'000, "online"}), vin);
  EXPECT_EQ(to_json({"a\"\n\xff\xc3\xa4"}),
            "{\"value\":\"a\\\"\\n\xef\xbf\xbd\xc3\xa4\",\"since\":null,\"stamp\":0,\"daemon\":null}");
  EXPECT_EQ(fleet_variable_from_json(vin).value().since, WallTime(1'795'334'400s + 5ms));
  for (const auto& [text, is_valid] : std::vector<std::pair<std::string, bool>>{
           {R"({"value":"","since":null,"stamp":9223372036854775807,"daemon":null,"more":[]})", true},
           {R"({"value":"","since":null,"stamp":9223372036854775808,"daemon":null})", false},
           {R"({"value":"","since":null,"stamp":-1,"daemon":null})", false},
           {"null", false},
           {std::string(60'000, '['), false},
           {R"({"value":")" + std::string(70'000, 'x') + R"(","since":null,"stamp":1,"daemon":null})", false},
           {R"({"value":null,"since":null,"stamp":1,"daemon":null})", false},
           {R"({"since":null,"stamp":1,"daemon":null})", false},
           {R"({"value":"a","since":null,"stamp":1.5,"daemon":null})", false},
           {R"({"value":"a","since":null,"stamp":1,"daemon":true})", false},
           {"{\"value\":\"\xff\",\"since\":null,\"stamp\":1,\"daemon\":null}", false},
           {R"({"value":"a","since":"2026-02-30T08:00:00.000Z","stamp":1,"daemon":null})", false},
           {R"({"value":"a","since":"9999-11-22T08:00:00.000Z","stamp":1,"daemon":null})", false},
           {R"({"value":"a","since":"2026-11-22T08:00:00.0","stamp":1,"daemon":null})", false},
           {R"({"value":"a","since":"2261-12-31T23:59:59.999Z","stamp":1,"daemon":null})", true},
           {R"({"value":"a","since":"2262-01-01T00:00:00.000Z","stamp":1,"daemon":null})", false},
       }) {
    EXPECT_EQ(fleet_variable_from_json(text).has_value(), is_valid) << text.substr(0, 80);
  }
}

TEST(UplinkSettingsTest, EachFaultIsOneLine) {
  const tests::TempDir dir;
  const std::string not_a_level =
      " is not one level of a topic, 1 to 64 bytes without '/', '+' and '#', not beginning with '$'";
  const std::vector<std::pair<std::string, std::string>> faults{
      {"", "ERROR [uplink] key 'host' is missing: the address of the fleet's broker"},
      {"host = a\nport = 0\n", "ERROR [tamu.config] line 2: key 'port': '0' is not a port, 1 to 65535"},
      {"host = a\nbus_port = 65536\n",
       "ERROR [uplink] line 2: key 'bus_port': '65536' is not a number from 1 to 65535"},
      {"host = a\nrefresh = 1h\n",
       "ERROR [uplink] line 2: key 'refresh': '1h' is not a number from 0 to 31536000"},
      {"host = a\nmin_interval = -1\n",
       "ERROR [uplink] line 2: key 'min_interval': '-1' is not a number from 0 to 86400"},
      {"host = a\nunit = a/b\n", "ERROR [uplink] line 2: key 'unit': 'a/b'" + not_a_level},
      {"host = a\nprefix = $SYS\n", "ERROR [uplink] line 2: key 'prefix': '$SYS'" + not_a_level},
      {"host = a\nvariables = ,\n", "ERROR [uplink] line 2: key 'variables': ',' names no variable"},
      {"host = a\nvariables =\n", "ERROR [uplink] line 2: key 'variables': '' names no variable"},
  };
  for (const auto& [text, line] : faults) {
    const std::string file = dir.write("uplink.conf", text);
    EXPECT_THAT(tests::logged_lines([&] { EXPECT_FALSE(read_settings(file)); }), ElementsAre(line)) << text;
  }
  EXPECT_FALSE(read_settings(dir.path("absent")));
}

TEST(UplinkSettingsTest, EveryKeyIsRead) {
  const tests::TempDir dir;
  const auto preset = read_settings(dir.write("uplink.conf", "host = fleet.example.com\n")).value();
  EXPECT_EQ(preset.unit + "|" + preset.unit_variable + "|" + preset.prefix, "|serialnumber|fleet");
  EXPECT_THAT(preset.variables, ElementsAre("*"));
  EXPECT_THAT((std::vector{preset.limits.min_interval, preset.limits.refresh, preset.reconnect_spread,
                           preset.repeat_after}),
              ElementsAre(10s, 86400s, 30s, 0s));
  EXPECT_EQ(preset.bus->get("host") + ":" + preset.bus->get("port"), "localhost:1883");
  const std::string file = dir.write(
      "uplink.conf",
      "host = a\nport = 8883\nunit = U1\nprefix = trucks\nvariables = vehicle*,hw* a, b\n"
      "min_interval = 0\nrefresh = 0\nreconnect_spread = 5\nrepeat_after = 6\nbus_host = /run/socket\n"
      "bus_port = 1884\nbus_username = up\nbus_password = link\n");
  std::filesystem::permissions(file, std::filesystem::perms(0644));
  std::optional<UplinkSettings> settings;
  EXPECT_THAT(
      tests::logged_lines([&] { settings = read_settings(file); }),
      ElementsAre("WARNING [tamu.config] line 13: key 'bus_password' is in the world-readable file '" + file +
                  "'"));
  const UplinkSettings& all = settings.value();
  EXPECT_EQ(all.unit + "|" + all.unit_variable + "|" + all.prefix, "U1||trucks");
  EXPECT_THAT(all.variables, ElementsAre("vehicle*", "hw*", "a", "b"));
  EXPECT_THAT(
      (std::vector{all.limits.min_interval, all.limits.refresh, all.reconnect_spread, all.repeat_after}),
      ElementsAre(0s, 0s, 5s, 6s));
  EXPECT_EQ(all.bus->get("host") + all.bus->get("port") + all.bus->get("username") + all.bus->get("password"),
            "/run/socket1884uplink");
}

/// The brokers of a unit and of a fleet, for an uplink within the test, whose clock the test sets.
class UplinkTest : public testing::Test {
 protected:
  UplinkTest() { fleet.subscribe("fleet/#"); }

  [[nodiscard]] UplinkSettings settings(const std::string& more = "unit = U1\nmin_interval = 0\n") const {
    const std::string config =
        "host = 127.0.0.1\nreconnect_spread = 1\nport = " + std::to_string(fleet_broker.port()) +
        "\nbus_host = " + unit_broker.socket_path() + '\n' + more;
    return read_settings(dir.write("uplink.conf", config)).value();
  }
  void publish(const std::string& value, std::uint64_t stamp) {
    unit.publish("system/var/" + value, tests::variable_message(value, stamp).payload, true);
  }
  static std::size_t count(const tests::BusClient& client, const std::string& topic) {
    return static_cast<std::size_t>(std::ranges::count(client.history(), topic, &tests::BusMessage::topic));
  }

  const tests::TempDir dir;
  tests::Broker unit_broker, fleet_broker;
  tests::BusClient unit{unit_broker.port()}, fleet{fleet_broker.port()};
  const std::uint64_t now = ecu::tamu::DateTime::time_since_boot_ns();
};

TEST_F(UplinkTest, AMessageIsSentAgainWithItsTimeOnceTheClockIsSet) {
  std::atomic<bool> is_set = false;
  Uplink uplink(settings(), [&]() -> std::optional<WallTime> {
    return is_set ? std::optional(WallTime(4'102'444'801s) + boot_time_now() - BootTime(now)) : std::nullopt;
  });
  uplink.start();
  ASSERT_TRUE(fleet.wait_for_text("fleet/U1/presence", "online"));
  EXPECT_EQ(fleet.wait_for("fleet/U1/connected_since").value().payload, "");
  publish("a", now);
  EXPECT_TRUE(fleet.wait_for_text("fleet/U1/var/a", R"({"value":"a","since":null,"stamp":)" +
                                                        std::to_string(now) + R"(,"daemon":null})"));
  is_set = true;
  EXPECT_TRUE(fleet.wait_for("fleet/U1/var/a", [](const tests::BusMessage& message) {
    return message.payload.starts_with(R"({"value":"a","since":"2100-01-01T00:00:0)");
  }));
  EXPECT_TRUE(fleet.wait_for("fleet/U1/connected_since", [](const tests::BusMessage& message) {
    return message.payload.starts_with("2100-01-01T00:00:0");
  }));
  publish("future", UINT64_MAX);
  const auto message = fleet.wait_for("fleet/U1/var/future");
  ASSERT_TRUE(message);
  EXPECT_LT(message->payload, R"({"value":"future","since":"2100-01-02)") << "no later than now";

  is_set = false;  // a new connection clears its time then
  publish("b", now);
  ASSERT_TRUE(fleet.wait_for("fleet/U1/var/b"));
  fleet_broker.restart();
  tests::BusClient office(fleet_broker.port());
  office.subscribe("fleet/#");
  ASSERT_TRUE(office.wait_for_text("fleet/U1/presence", "online"));
  is_set = true;
  EXPECT_TRUE(office.wait_for("fleet/U1/connected_since", [](const tests::BusMessage& time) {
    return time.payload.starts_with("2100-01-01T00:");
  }));
  EXPECT_TRUE(office.wait_for("fleet/U1/var/b", [](const tests::BusMessage& timed) {
    return timed.payload.starts_with(R"({"value":"b","since":"2100-01-01T00:00:0)");
  }));
  EXPECT_EQ(count(office, "fleet/U1/var/a"), 1U) << "the fleet knows its time";
}

TEST_F(UplinkTest, AConnectionCorrectsWhatWasSentWithAnotherClockOrPresenceOfTheDaemon) {
  constexpr WallTime unset{};
  std::atomic<WallTime> booted = WallTime(4'102'444'800s);
  Uplink uplink(settings(), [&] {
    const WallTime start = booted;
    return start == unset ? std::nullopt : std::optional(start + boot_time_now());
  });
  unit.publish("system/presence/quil", "online", true);
  publish("a", 1'500'000'000);
  uplink.start();
  const auto arrives = [](tests::BusClient& client, const std::string& since, const std::string& daemon) {
    return client
        .wait_for("fleet/U1/var/a",
                  [&](const tests::BusMessage& message) {
                    return message.payload.starts_with(R"({"value":"a","since":")" + since) &&
                           message.payload.ends_with(R"(,"daemon":")" + daemon + "\"}");
                  })
        .has_value();
  };
  ASSERT_TRUE(arrives(fleet, "2100-01-01T00:00:01.", "online"));
  unit.publish("system/presence/quil", "offline", true);
  ASSERT_TRUE(fleet.wait_for_text("fleet/U1/daemon", "offline"));
  EXPECT_EQ(count(fleet, "fleet/U1/var/a"), 1U) << "it shows what was true when it was sent";
  booted = WallTime(4'102'444'860s);
  fleet_broker.restart();
  tests::BusClient office(fleet_broker.port());
  office.subscribe("fleet/#");
  EXPECT_TRUE(arrives(office, "2100-01-01T00:01:01.", "offline"));
  EXPECT_EQ(count(office, "fleet/U1/daemon"), 1U);

  booted = unset;
  fleet_broker.restart();
  tests::BusClient late(fleet_broker.port());
  late.subscribe("fleet/#");
  ASSERT_TRUE(late.wait_for_text("fleet/U1/presence", "online"));
  ASSERT_TRUE(arrives(late, "2100-01-01T00:01:01.", "offline"));
  booted = WallTime(4'102'444'920s);
  EXPECT_TRUE(arrives(late, "2100-01-01T00:02:01.", "offline")) << "once the clock is set";
}

TEST_F(UplinkTest, WhatTheConnectionsOfFormerNamesSendLateIsRepaired) {
  UplinkSettings fast = settings("min_interval = 0\n");
  fast.keepalive = 4s;
  Uplink uplink(std::move(fast));
  const auto is_filled = [](const tests::BusMessage& message) { return !message.payload.empty(); };
  publish("a", 1);
  uplink.start();
  for (const std::string name : {"A", "B", "A"}) {
    unit.publish("system/var/serialnumber", tests::variable_message(name, 1).payload, true);
    ASSERT_TRUE(fleet.wait_for("fleet/" + name + "/var/a", is_filled));
  }
  ASSERT_TRUE(fleet.wait_for_text("fleet/B/presence", ""));
  ASSERT_TRUE(fleet.wait_for_text("fleet/B/var/a", ""));
  tests::BusClient late(fleet_broker.port()), office(fleet_broker.port());
  late.publish("fleet/B/presence", "lost", true);
  late.publish("fleet/B/var/a", "late", true);
  for (const char* key : {"presence", "var/a", "connected_since"}) {
    late.publish(std::string("fleet/A/") + key, "", true);
  }
  late.publish("fleet/end", "");
  ASSERT_TRUE(fleet.wait_for("fleet/end"));
  office.subscribe("fleet/#");
  EXPECT_TRUE(office.wait_for_text("fleet/B/presence", ""));
  EXPECT_TRUE(office.wait_for_text("fleet/B/var/a", ""));
  EXPECT_TRUE(office.wait_for_text("fleet/A/presence", "online"));
  EXPECT_TRUE(office.wait_for("fleet/A/connected_since", is_filled));
  EXPECT_TRUE(office.wait_for("fleet/A/var/a", is_filled));
}

}  // namespace
