#include <regex>

#include "system/client_fixture.h"
#include "system/daemon.h"

namespace tests {
namespace {

using Edits = std::vector<std::pair<std::string, std::string>>;

/// A broker sample with `edits`, which apply only to the lines marked EDIT; each must match.
std::string sample(const std::string& name, const Edits& edits = {}) {
  std::ifstream file(SOURCE_DIR "/deploy/broker/" + name);
  EXPECT_TRUE(file) << name;
  std::map<std::string, int> made;
  std::string text;
  bool marked = false;
  for (std::string line; std::getline(file, line); text += line + '\n') {
    for (const auto& [from, to] : edits) {
      if (const auto at = line.find(from); marked && at != std::string::npos) {
        line.replace(at, from.size(), to);
        ++made[from];
      }
    }
    marked = line.starts_with("# EDIT:");
  }
  EXPECT_EQ(made.size(), edits.size()) << name;
  return text;
}

/// A file of logins. The password of each is its name.
std::string write_passwords(const TempDir& dir, const std::vector<std::string>& users) {
  std::string file = dir.write("passwords", "");
  for (std::ofstream logins(file); const std::string& user : users) {
    logins << user << ':' << user << '\n';
  }
  EXPECT_EQ(Process({"/usr/bin/mosquitto_passwd", "-U", file}).wait(), 0);
  return file;
}

const std::vector<std::string> users{"quil",        "realtime", "configurator", "vault",
                                     "application", "engineer", "uplink"};

const std::string socket_file = "/run/mqtt/broker.socket";
const std::string password_file = "/etc/mosquitto/tolquil.passwd";
const std::string access_list = "/etc/mosquitto/tolquil.acl";

/// Stores samples in a folder that the broker reads in the order of their names, and returns the
/// configuration line for it.
std::string installed(const TempDir& dir, const std::map<std::string, std::string>& samples) {
  std::filesystem::create_directory(dir.path("conf.d"));
  for (const auto& [name, text] : samples) {
    dir.write("conf.d/" + name, text);
  }
  return "include_dir " + dir.path("conf.d") + '\n';
}

/// A unit's broker with all its samples, in which "witness" may do everything.
class UnitBroker {
 public:
  explicit UnitBroker(const std::string& bridge = "") : broker(configuration(bridge)) {}

  /// At the listener for logins.
  BusClient log_in(const std::string& user, const std::string& id = "") const {
    return BusClient(logins.number(), id, user, user);
  }
  /// For the daemon.
  [[nodiscard]] std::string config(const std::string& more = "") const {
    return "username = quil\npassword = quil\nhost = " + dir.path("socket") + '\n' + more;
  }

  TempDir dir;
  LoopbackPort logins;
  Broker broker;

 private:
  std::string configuration(const std::string& bridge) const {
    auto names = users;
    names.emplace_back("witness");
    const std::regex example("^#(user|topic) ", std::regex::multiline);
    const std::string acl =
        std::regex_replace(sample("access.acl"), example, "$1 ") + "user witness\ntopic readwrite #\n";
    return installed(dir,
                     {{"socket.conf", sample("socket.conf", {{socket_file, dir.path("socket")},
                                                             {"per_listener_settings true", ""},
                                                             {"allow_anonymous true", ""}})},
                      {"limits.conf", sample("limits.conf")},
                      {"bridge.conf", bridge},
                      {"access.conf", sample("access.conf", {{"1883", std::to_string(logins.number())},
                                                             {password_file, write_passwords(dir, names)},
                                                             {access_list, dir.write("acl", acl)}})}});
  }
};

bool heard(const BusClient& client, const std::string& topic, const std::string& text) {
  return std::ranges::any_of(client.history(), [&](const BusMessage& message) {
    return message.topic == topic && message.payload == text;
  });
}

TEST(BrokerSamplesTest, EachTopicHasItsWritersAndReadersAndNoOthers) {
  struct Rule {
    std::string topic, writers, readers;
  };
  const std::string everybody = "quil realtime configurator vault application engineer uplink";
  const std::vector<Rule> rules{
      {"system/var/hwversion", "quil", "quil configurator application engineer uplink"},
      {"system/presence/quil", "quil", everybody},
      {"system/quil/secstore/setmaster", "vault", "quil"},
      {"system/quil/secstore/setremote", "vault", "quil"},
      {"system/quil/secstore/getmaster", "quil", "vault"},
      {"system/quil/secstore/getremote", "quil", "vault"},
      {"system/quil/secstore/other", "", ""},
      {"system/sysparams/write", "configurator", "quil engineer"},
      {"system/sysparams", "quil", "configurator application engineer"},
      {"system/sysparam/", "quil", "configurator application engineer"},
      {"system/quil/request/sysparams", "configurator application engineer", "quil engineer"},
      {"rt/system/hw_variant", "realtime engineer", "quil engineer"},
      {"rt/j1939can/tx/rqst_fb_ee", "quil engineer", "realtime engineer"},
  };
  UnitBroker unit;
  BusClient witness = unit.log_in("witness");
  witness.subscribe("#");
  for (const std::string& user : users) {
    BusClient client = unit.log_in(user);
    client.subscribe("#");
    client.subscribe("system/quil/secstore/+");
    for (const Rule& rule : rules) {
      client.publish(rule.topic, "by " + user, false, 1);
      witness.publish(rule.topic, "for " + user, false, 1);
    }
    // The topics that the user may write and read: all earlier messages have arrived by then.
    client.publish("system/presence/" + user, "done", false, 1);
    ASSERT_TRUE(witness.wait_for_text("system/presence/" + user, "done"));
    witness.publish("system/presence/x", "done", false, 1);
    ASSERT_TRUE(client.wait_for_text("system/presence/x", "done"));
    for (const auto& [topic, writers, readers] : rules) {
      const auto named_in = [&](const std::string& list) { return list.find(user) != std::string::npos; };
      EXPECT_EQ(heard(witness, topic, "by " + user), named_in(writers)) << user << " writes " << topic;
      EXPECT_EQ(heard(client, topic, "for " + user), named_in(readers)) << user << " reads " << topic;
    }
  }
  EXPECT_THROW(BusClient(unit.logins.number()), std::runtime_error);
  EXPECT_THROW(BusClient(unit.logins.number(), "", "quil", "guessed"), std::runtime_error);
}

TEST(BrokerSamplesTest, WithoutAnAccessListOnlyTheSocketAdmitsClients) {
  const TempDir dir;
  std::map<std::string, std::string> samples{
      {"socket.conf", sample("socket.conf", {{socket_file, dir.path("socket")}})},
      {"limits.conf", sample("limits.conf")}};
  Broker broker(installed(dir, samples));
  EXPECT_TRUE(Daemon("host = " + dir.path("socket")).wait_until_connected());
  EXPECT_THROW(BusClient(broker.port()), std::runtime_error) << "a listener that the sample does not know of";
  const LoopbackPort logins;
  samples["access.conf"] = sample("access.conf", {{"1883", std::to_string(logins.number())},
                                                  {password_file, write_passwords(dir, users)},
                                                  {access_list, SOURCE_DIR "/deploy/broker/access.acl"}});
  EXPECT_THROW(Broker(installed(dir, samples)), std::runtime_error) << "logins that would not be asked for";
}

TEST(BrokerSamplesTest, ALoginThatTakesTheDaemonsClientIdentifierDoesNotEndTheDaemonsConnection) {
  UnitBroker unit;
  BusClient witness = unit.log_in("witness");
  witness.subscribe(presence_topic);
  Daemon daemon(unit.config());
  ASSERT_TRUE(witness.wait_for_text(presence_topic, "online")) << daemon.output();
  BusClient intruder = unit.log_in("application", "quil");
  intruder.publish("system/presence/application", "online", false, 1);
  BusClient realtime = unit.log_in("realtime", "quil");
  witness.subscribe("system/var/hwvariant");
  realtime.publish("rt/system/hw_variant", hardware_variant("R08_B1"));
  EXPECT_TRUE(witness.wait_for("system/var/hwvariant"));
  EXPECT_FALSE(heard(witness, presence_topic, "offline"));
}

TEST(BrokerSamplesTest, AnOversizedMessageIsDroppedAndItsSenderStaysConnected) {
  UnitBroker unit;
  BusClient witness = unit.log_in("witness");
  witness.subscribe("x/#");
  constexpr std::size_t limit = 262'144;
  witness.publish("x/over", std::string(limit + 1, 'x'), false, 1);
  witness.publish("x/at", std::string(limit, 'x'), false, 1);
  EXPECT_TRUE(witness.wait_for("x/at"));
  EXPECT_EQ(witness.history().size(), 1U);
}

/// A call of a tool that logs in as `user`.
std::vector<std::string> as_user(std::vector<std::string> words, const TempDir& dir, const std::string& user,
                                 const std::string& address) {
  words.front().insert(0, PROGRAM_DIR "/");
  words.insert(words.end(), {"--host", address, "--user", user, "--password-file", dir.write(user, user)});
  return words;
}

TEST(BrokerSamplesTest, TheToolsLogIn) {
  const UnitBroker unit;
  const std::string address = "127.0.0.1:" + std::to_string(unit.logins.number());
  const Daemon daemon(unit.config());
  const Process surroundings(as_user({"ecusim", "play"}, unit.dir, "realtime", address));
  Process get(as_user({"quilctl", "get", "vehicleid", "--wait", "30"}, unit.dir, "application", address));
  EXPECT_EQ(get.wait(), 0) << get.output();
  EXPECT_EQ(get.standard_output(), "1M8GDM9AXKP042788\n");
}

// ---- the fleet ----

/// The fleet's broker, which knows each unit by its certificate.
class FleetTest : public testing::Test {
 protected:
  const std::string id = "unit-0042";
  const std::string unit_tree = "fleet/" + id + '/';

  /// Of the fleet's authority, its broker, or a unit.
  [[nodiscard]] std::string certificate(const std::string& name) const {
    return dir.path("certificates/" + name + ".pem");
  }
  [[nodiscard]] std::string key(const std::string& name) const {
    return dir.path("certificates/" + name + ".key");
  }
  std::string fleet_configuration() {
    Process script({"/bin/bash", "-c", R"(printf 'unit-0001\n%s' "$2" | "$0" "$1" 127.0.0.1 -)",
                    SOURCE_DIR "/deploy/fleet/fleet-certificates", dir.path("certificates"), id});
    EXPECT_EQ(script.wait(), 0) << script.output();
    return "password_file " + write_passwords(dir, {"monitor"}) + '\n' +
           sample("fleet.conf",
                  {{"listener 8883", "listener " + std::to_string(fleet_port.number()) + " 127.0.0.1"},
                   {"/etc/mosquitto/certs/fleet.pem", certificate("broker")},
                   {"/etc/mosquitto/certs/fleet.key", key("broker")},
                   {"/etc/mosquitto/ca_certificates/units.pem", certificate("authority")},
                   {"/etc/mosquitto/fleet.acl", SOURCE_DIR "/deploy/broker/fleet.acl"}});
  }
  /// For a client of the fleet's broker with this unit's certificate.
  [[nodiscard]] std::string client_configuration(const std::string& unit) const {
    return config_for(fleet_port.number(), "cafile = " + certificate("authority") + "\ncertfile = " +
                                               certificate(unit) + "\nkeyfile = " + key(unit) + '\n');
  }

  TempDir dir;
  LoopbackPort fleet_port;
  Broker fleet{fleet_configuration()};
  BusClient monitor{fleet.port(), "", "monitor", "monitor"};
};

class BridgeTest : public FleetTest {
 protected:
  const std::string variable = unit_tree + "system/var/hwvariant";

  /// Of a bridge with the certificate of `owner`.
  std::string bridge_configuration(const std::string& owner, const Edits& edits) {
    Edits all{{"fleet.example.com:8883", "127.0.0.1:" + std::to_string(fleet_port.number())},
              {"/etc/mosquitto/ca_certificates/fleet.pem", certificate("authority")},
              {"/etc/mosquitto/certs/unit-0001.pem", certificate(owner)},
              {"/etc/mosquitto/certs/unit-0001.key", key(owner)}};
    all.insert(all.end(), edits.begin(), edits.end());
    return sample("bridge.conf", all);
  }
  /// Whether the fleet's broker has retained the unit's variable, and nothing else.
  void expect_kept(const std::string& value) {
    BusClient reader(fleet.port(), "", "monitor", "monitor");
    reader.subscribe("#");
    EXPECT_TRUE(comes(reader, variable, value)) << value;
    for (const BusMessage& kept : reader.history()) {
      EXPECT_TRUE(kept.topic.starts_with(unit_tree + "system/var/") || kept.topic == unit_tree + "connected")
          << kept.topic;
    }
  }
  /// Returns when the daemon was on line to receive it.
  void send_variant(const std::string& value) {
    BusClient realtime = unit.log_in("realtime");
    realtime.subscribe("system/presence/#");
    ASSERT_TRUE(realtime.wait_for_text(presence_topic, "online"));
    realtime.publish("rt/system/hw_variant", hardware_variant(value));
  }

  UnitBroker unit{bridge_configuration(id, {{"unit-0001", id}})};
};

TEST_F(BridgeTest, TheFleetHasTheVariablesAfterEitherSideRestartsAndNeverASecret) {
  Daemon daemon(unit.config());
  unit.log_in("witness").publish("system/quil/secstore/getmaster", "hush", true, 1);
  send_variant("R08_B1");
  expect_kept("R08_B1");
  Process decode({PROGRAM_DIR "/quilctl", "decode", variable, "--count", "1", "--host",
                  "mqtts://127.0.0.1:" + std::to_string(fleet_port.number()), "--cafile",
                  certificate("authority"), "--cert", certificate("monitor"), "--key", key("monitor")});
  EXPECT_EQ(decode.wait(), 0) << decode.output();
  fleet.restart();
  expect_kept("R08_B1");
  unit.broker.restart();
  send_variant("R08_B2");
  expect_kept("R08_B2");
}

TEST_F(BridgeTest, AUnitsPresenceIsVisibleEvenIfAnotherTakesItsIdentifier) {
  monitor.subscribe("#");
  EXPECT_TRUE(monitor.wait_for_text(unit_tree + "connected", "1"));
  const UnitBroker impostor(bridge_configuration("unit-0001", {{"clientid unit-0001", "clientid " + id}}));
  EXPECT_TRUE(monitor.wait_for_text("fleet/unit-0001/connected", "1"));
  EXPECT_FALSE(heard(monitor, unit_tree + "connected", "0")) << "its connection was ended";
  unit.broker.stop();
  EXPECT_TRUE(monitor.wait_for_text(unit_tree + "connected", "0"));
}

TEST_F(FleetTest, CertificatesThatCannotBeMadeAreNamed) {
  const std::string script = SOURCE_DIR "/deploy/fleet/fleet-certificates";
  for (const auto& [words, reason] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{script, "/proc", "broker"}, "openssl cannot make the certificate of the authority in /proc"},
           {{script, dir.path("certificates"), "broker", "c d"},
            "'c d' is not a unit's name: 1 to 64 letters"},
       }) {
    Process refused(words);
    EXPECT_EQ(refused.wait(), 1);
    EXPECT_THAT(refused.output(), testing::StartsWith("fleet-certificates: " + reason));
  }
}

TEST_F(FleetTest, AHostileUnitNeitherForgesNorReadsNorDisturbsAnother) {
  Broker unit_broker;
  BusClient unit(unit_broker.port());
  monitor.subscribe("#");
  Process uplink(
      {PROGRAM_DIR "/tolquil-uplink", "-c",
       dir.write("uplink.conf", client_configuration(id) + "unit = " + id +
                                    "\nmin_interval = 0\nbus_host = " + unit_broker.socket_path())});
  ASSERT_TRUE(monitor.wait_for_text(unit_tree + "presence", "online")) << uplink.output();

  auto config = std::make_unique<ecu::tamu::config::Configuration>();
  std::istringstream text(client_configuration("unit-0001") + "client_name = " + id);
  set_config_from_input(config, text);
  const auto hostile =
      com::create_client(config, com::TransportType::mqtt, nullptr,
                         {.presence = com::Presence{unit_tree + "presence", "forged", "forged", "forged"}});
  const auto spy = std::make_shared<Recorder>(nullptr);
  hostile->subscribe("#", 1, spy);
  hostile->subscribe(unit_tree + "#", 1, spy);
  hostile->connect();
  hostile->start();
  const auto publish = [&](const std::string& topic, const std::string& payload) {
    (void)hostile->publish(topic, raw_message(payload, false, true));
  };
  for (int i = 0; i < 1000; ++i) {
    publish(unit_tree + "var/vehicleid", "forged " + std::to_string(i));
  }
  publish("fleet/unit-0001/var/oversized", std::string(32'769, 'x'));
  for (int i = 0; i < 300; ++i) {
    publish("fleet/unit-0001/var/flood" + std::to_string(i), std::string(32'768, 'x'));
  }
  publish("fleet/unit-0001/var/vehicleid", "its own");
  ASSERT_TRUE(monitor.wait_for_text("fleet/unit-0001/var/vehicleid", "its own"));
  unit.publish("system/var/vehicleid", variable_message("1M8GDM9AXKP042788").payload, true);
  EXPECT_TRUE(comes(monitor, unit_tree + "var/vehicleid", R"({"value":"1M8GDM9AXKP042788",)"));
  for (const BusMessage& message : monitor.history()) {
    EXPECT_EQ(message.payload.find("forged"), std::string::npos) << message.topic;
    EXPECT_NE(message.payload, "lost");
    EXPECT_NE(message.topic, "fleet/unit-0001/var/oversized");
  }
  EXPECT_TRUE(spy->seen().empty());

  for (const auto& [login, code] : {std::pair{"monitor", 5}, {"administrator", 0}}) {
    Process retire({PROGRAM_DIR "/quilctl", "--fleet", "retire", "unit-0001", "--yes", "--timeout", "3",
                    "--host", "mqtts://127.0.0.1:" + std::to_string(fleet_port.number()), "--cafile",
                    certificate("authority"), "--cert", certificate(login), "--key", key(login)});
    EXPECT_EQ(retire.wait(), code) << login << retire.output();
  }
}

}  // namespace
}  // namespace tests
