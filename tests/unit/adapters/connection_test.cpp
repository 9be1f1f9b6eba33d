#include "mqtt/connection.h"

#include <gmock/gmock.h>
#include <poll.h>

#include <atomic>
#include <functional>
#include <future>
#include <latch>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "mqtt/backoff.h"
#include "mqtt/mqtt_client.h"
#include "mqtt/name_lookup.h"
#include "support/authority.h"
#include "support/captured_log.h"
#include "support/scripted_broker.h"

namespace {

using namespace ecu::tamu::com;
using namespace ecu::tamu::com::mqtt;
using namespace std::chrono_literals;
using namespace std::string_literals;
using Reaction = tests::ScriptedBroker::Reaction;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

Message text_message(const std::string& text, bool acknowledged = false, bool retained = false) {
  Message message = make_message(0, {text.begin(), text.end()});
  message.acknowledged = acknowledged;
  message.retained = retained;
  return message;
}

MqttSettings settings_for(const std::string& host, int port = 0) {
  MqttSettings settings;
  settings.client_id = "tested";
  settings.host = host;
  settings.port = port;
  settings.keepalive = 60s;
  settings.presence = false;
  return settings;
}

// ---- the connection ----

/// Records the events, then calls the test's function, which may throw.
class Listener final : public ConnectionListener {
 public:
  void connection_up() override { happened("up"); }
  void connection_down(ConnectionFailure failure, const std::string& reason) override {
    down = failure;
    events.push_back("down: " + reason);
  }
  void message(const std::string& topic, Message /*message*/) override { happened(topic); }
  void subscription_refused(const std::string& filter) override { happened("refused " + filter); }
  void fence_answered(Fence /*fence*/) override { happened("fence"); }

  std::vector<std::string> events;
  ConnectionFailure down = ConnectionFailure::refused;
  std::function<void(const std::string& event)> on_event = [](const std::string&) {};

 private:
  void happened(const std::string& event) {
    events.push_back(event);
    on_event(event);
  }
};

class ConnectionTest : public testing::Test {
 protected:
  void run_until(Connection& connection, const std::function<bool()>& done) {
    const ecu::tamu::posix::Event wake;
    const auto deadline = Connection::Clock::now() + tests::time_limit;
    while (!done() && Connection::Clock::now() < deadline) {
      connection.wait(wake, deadline);
    }
  }
  /// Runs the connection until this number of events has occurred.
  std::vector<std::string> run(Connection& connection, std::size_t count) {
    run_until(connection, [&] { return listener.events.size() >= count; });
    return listener.events;
  }

  Listener listener;
};

TEST_F(ConnectionTest, AFailureOfTheListenerFailsTheConnectionWhichIsRetried) {
  const struct {
    std::string event;
    std::function<void()> failure;
    std::string reason;
  } cases[] = {
      {"up", [] { throw std::bad_alloc(); }, "out of memory"},
      {"up", [] { throw std::runtime_error("full"); }, "full"},
      {"up", [] { throw 1; }, "unknown fault"},
      {"fence", [] { throw std::bad_alloc(); }, "out of memory"},
      {"fence", [] { throw 1; }, "a packet could not be handled"},
      {"in", [] { throw 1; }, "a packet could not be handled"},
  };
  tests::ScriptedBroker broker([](const std::string& packet) {
    return packet == "SUBSCRIBE in" ? Reaction("\x30\x04\x00\x02in"s) : Reaction::answer;
  });
  const MqttSettings settings = settings_for("127.0.0.1", broker.port());
  for (const auto& c : cases) {
    listener.events.clear();
    Connection connection(settings, listener);
    listener.on_event = [&, failed = false](const std::string& event) mutable {
      if (event == c.event && !std::exchange(failed, true)) {
        c.failure();
      }
      if (event == "up") {
        !failed&& c.event == "in" ? connection.subscribe("in", 0)
                                  : connection.request_fence(Fence::subscriptions);
      }
    };
    connection.open();
    const auto events = run(connection, c.event == "up" ? 4 : 5);
    EXPECT_EQ(listener.down, ConnectionFailure::internal);
    EXPECT_THAT(events, Contains("down: " + c.reason).Times(1));
    EXPECT_EQ(events.back(), "fence");
    EXPECT_TRUE(connection.is_up());
  }
}

TEST_F(ConnectionTest, APermanentLackOfMemoryEndsTheProcessWithALine) {
  const MqttSettings settings = settings_for("127.0.0.1", 1);
  Connection connection(settings, listener);
  for (const char* last : {"another failure", "out of memory"}) {
    for (int failures = 0; failures < 8; ++failures) {
      connection.fail({ConnectionFailure::internal, "out of memory"});
    }
    connection.fail({ConnectionFailure::internal, last});
  }
  EXPECT_DEATH(
      {
        ecu::tamu::logging::set_log_mode(ecu::tamu::logging::LogMode::standard_error);
        connection.fail({ConnectionFailure::internal, "out of memory"});
      },
      "ALERT .tamu.com.mqtt. no connection to 127.0.0.1 for lack of memory, 10 times in a row");
}

TEST_F(ConnectionTest, AnAttemptFailsWithItsReason) {
  const tests::Authority authority;
  const struct {
    Reaction to_connect;
    std::function<void(MqttSettings&)> change;
    ConnectionFailure kind;
    std::string reason;
  } cases[] = {
      {Reaction::answer, [](auto& settings) { settings.username = "\xff"; }, ConnectionFailure::internal,
       "user name: Malformed UTF-8"},
      {Reaction::answer,
       [](auto& settings) {
         settings.presence = true;
         settings.client_id = "+";
       },
       ConnectionFailure::internal, "presence topic: Invalid function arguments provided."},
      {Reaction::ignore, {}, ConnectionFailure::no_answer, "no answer"},
      {Reaction("\x20\x02\x00\x04"s),
       {},
       ConnectionFailure::bad_credentials,
       "Connection Refused: bad user name or password."},
      {Reaction("\x20\x02\x00\x03"s),
       {},
       ConnectionFailure::refused,
       "Connection Refused: broker unavailable."},
      {Reaction("\x40\x02\x00\x01"s),
       {},
       ConnectionFailure::protocol,
       "A network protocol error occurred when communicating with the broker."},
      // A ClientHello passes for the packet CONNECT, and the answer is a fatal alert.
      {Reaction("\x15\x03\x03\x00\x02\x02\x28"s), [&](auto& settings) { settings.cafile = authority.file(); },
       ConnectionFailure::tls, "the broker refuses the TLS handshake: handshake failure"},
  };
  for (const auto& c : cases) {
    tests::ScriptedBroker broker([&](const std::string&) { return c.to_connect; });
    MqttSettings settings = settings_for("127.0.0.1", broker.port());
    settings.connect_timeout = c.to_connect.kind == Reaction::ignore ? 50ms : 10s;
    if (c.change) {
      c.change(settings);
    }
    listener.events.clear();
    Connection connection(settings, listener);
    connection.open();
    EXPECT_THAT(run(connection, 1), ElementsAre("down: " + c.reason));
    EXPECT_EQ(listener.down, c.kind);
  }
}

TEST_F(ConnectionTest, AnOverdueAnswerFailsTheConnection) {
  struct Request {
    std::string packet;
    std::function<void(Connection&)> send;
  };
  const std::vector<Request> requests{
      {"PUBLISH a=1", [](Connection& connection) { connection.publish("a", text_message("1", true)); }},
      {"SUBSCRIBE a", [](Connection& connection) { connection.subscribe("a", 0); }},
      {"UNSUBSCRIBE a", [](Connection& connection) { connection.unsubscribe("a"); }},
      {"UNSUBSCRIBE $echo", [](Connection& connection) { connection.request_fence(Fence::publication); }},
  };
  for (const Request& request : requests) {
    tests::ScriptedBroker broker([&](const std::string& name) {
      return name == request.packet ? Reaction::ignore : Reaction::answer;
    });
    MqttSettings settings = settings_for("127.0.0.1", broker.port());
    settings.answer_timeout = 100ms;
    listener.events.clear();
    Connection connection(settings, listener);
    listener.on_event = [&](const std::string& event) {
      if (event == "up") {
        request.send(connection);
      }
    };
    connection.open();
    EXPECT_THAT(run(connection, 3), ElementsAre("up", "down: no acknowledgement", "up")) << request.packet;
    EXPECT_EQ(listener.down, ConnectionFailure::no_answer);
  }
}

TEST_F(ConnectionTest, AFloodOfAnswersIsReadInParts) {
  for (const auto& [packet, answer] : {std::pair{"CONNECT"s, "\x20\x02\x00\x00"s},
                                       {"SUBSCRIBE a", "\x90\x03\x00\x01\x00"s},
                                       {"UNSUBSCRIBE a", "\xb0\x02\x00\x01"s}}) {
    std::string flood;
    for (int i = 0; i < 1000; ++i) {
      flood += answer;
    }
    tests::ScriptedBroker broker([&, answered = packet](const std::string& name) {
      return name == answered ? Reaction(flood) : Reaction::answer;
    });
    const MqttSettings settings = settings_for("127.0.0.1", broker.port());
    Connection connection(settings, listener);
    listener.on_event = [&](const std::string&) {
      connection.subscribe("a", 0);
      connection.unsubscribe("a");
    };
    connection.open();
    run_until(connection, [&] { return connection.more_to_read(); });
    EXPECT_TRUE(connection.more_to_read()) << packet;
  }
}

TEST_F(ConnectionTest, WhatCannotBeSentOrHandledIsLoggedAndCostsNothingElse) {
  const tests::ScriptedBroker broker([](const std::string& packet) {
    return packet == "SUBSCRIBE in" ? Reaction("\x30\x04\x00\x02in"s) : Reaction::answer;
  });
  const MqttSettings settings = settings_for("127.0.0.1", broker.port());
  Connection connection(settings, listener);
  listener.on_event = [&](const std::string& event) {
    if (event == "in") {
      throw std::runtime_error("full");
    }
    connection.publish("a/+", text_message("1"));
    connection.subscribe("a/#/b", 0);
    connection.unsubscribe("a/#/b");
    connection.subscribe("in", 0);
  };
  connection.open();
  const auto log = tests::logged_lines([&] { EXPECT_THAT(run(connection, 2), ElementsAre("up", "in")); });
  EXPECT_TRUE(connection.is_up());
  EXPECT_THAT(broker.packets(), ElementsAre("CONNECT", "SUBSCRIBE in"));
  const std::string module = "[tamu.com.mqtt] ", reason = ": Invalid function arguments provided.";
  EXPECT_THAT(log, ElementsAre("NOTICE " + module + "connected to " + settings.broker(),
                               "WARNING " + module + "cannot publish on topic a/+" + reason,
                               "WARNING " + module + "cannot subscribe to a/#/b" + reason,
                               "ERROR " + module + "incoming message on topic in lost: full"));
}

TEST_F(ConnectionTest, OnlyOneNameLookupRunsAtATimeAndALateResultIsUsed) {
  tests::ScriptedBroker broker([](const std::string&) { return Reaction::answer; });
  MqttSettings settings = settings_for("broker.invalid", broker.port());
  settings.connect_timeout = 10ms;
  // May outlive the test, like the thread of the lookup.
  struct Resolution {
    std::latch answered{1};
    std::atomic<int> lookups = 0;
  };
  const auto resolution = std::make_shared<Resolution>();
  Connection connection(settings, listener, [resolution](const std::string&) {
    ++resolution->lookups;
    resolution->answered.wait();
    return LookupResult{{"127.0.0.1"}, ""};
  });
  connection.open();
  const std::string no_answer = "down: name server does not answer";
  EXPECT_THAT(run(connection, 3), ElementsAre(no_answer, no_answer, no_answer));
  settings.connect_timeout = 10s;
  resolution->answered.count_down();
  EXPECT_EQ(run(connection, 4).back(), "up");
  EXPECT_EQ(resolution->lookups, 1);
}

TEST(NameLookupTest, ExplainsWhyAHostHasNoAddress) {
  EXPECT_THAT(look_up("192.0.2.1").addresses, ElementsAre("192.0.2.1"));
  const LookupResult too_long = look_up(std::string(300, 'x'));
  EXPECT_THAT(too_long.addresses, testing::IsEmpty());
  EXPECT_NE(too_long.error, "");
  NameLookup without_memory("broker", [](const std::string&) -> LookupResult { throw std::bad_alloc(); });
  pollfd done{without_memory.fd(), POLLIN, 0};
  ASSERT_EQ(::poll(&done, 1, std::chrono::milliseconds(tests::time_limit).count()), 1);
  EXPECT_EQ(without_memory.take().error, "out of memory");
}

TEST(MqttClientTest, IsTheOnlyTypeOfClient) {
  EXPECT_THROW(create_client(nullptr, static_cast<TransportType>(1), nullptr), std::invalid_argument);
}

TEST(NameLookupTest, AsksNoNameServerForTheAddressesOfThisMachine) {
  EXPECT_THAT(known_addresses("localhost"), ElementsAre("::1", "127.0.0.1"));
  for (const char* address : {"127.0.0.1", "192.0.2.1", "::1", "2001:db8::1"}) {
    EXPECT_THAT(known_addresses(address), ElementsAre(address));
  }
  for (const char* name : {"broker", "localhost.example", "127.0.0.1.example", "fe80::1%eth0"}) {
    EXPECT_THAT(known_addresses(name), testing::IsEmpty()) << name;
  }
}

TEST_F(ConnectionTest, EveryAddressIsTriedBeforeAnAttemptFailsAndALostConnectionNeedsALookup) {
  tests::ScriptedBroker broker([](const std::string&) { return Reaction::answer; });
  const MqttSettings settings = settings_for("broker.invalid", broker.port());
  const auto lookups = std::make_shared<std::atomic<int>>(0);
  Connection connection(settings, listener, [lookups](const std::string&) {
    return ++*lookups == 1 ? LookupResult{{}, "no such host"} : LookupResult{{"127.0.0.2", "127.0.0.1"}, ""};
  });
  connection.open();
  EXPECT_THAT(run(connection, 2), ElementsAre("down: no such host", "up"));
  connection.fail({ConnectionFailure::internal, "lost"});
  EXPECT_THAT(run(connection, 4), ElementsAre("down: no such host", "up", "down: lost", "up"));
  EXPECT_EQ(*lookups, 3);
}

TEST(BackoffTest, APauseDoublesUpToTheLongestLessAtMostAQuarter) {
  const std::vector<std::pair<std::string, std::vector<int>>> pauses_of_host{
      {"localhost", {100, 200, 400, 500, 500}},
      {"broker", {100, 200, 400, 800, 1600, 3200, 5000, 5000}},
  };
  for (const auto& [host, pauses] : pauses_of_host) {
    Backoff backoff(settings_for(host));
    std::set<Backoff::Duration> first_pauses;
    for (int round = 0; round < 50; ++round) {
      for (const int pause : pauses) {
        const auto next = backoff.next().count();
        EXPECT_LE(next, pause) << host;
        EXPECT_GE(next, pause * 3 / 4) << host;
        backoff.connection_lost(4999ms);
        if (pause == 100) {
          first_pauses.emplace(next);
        }
      }
      backoff.connection_lost(5s);
    }
    EXPECT_GT(first_pauses.size(), 1u) << host;
  }
}

TEST(MqttSettingsTest, AreReadFromTheConfiguration) {
  ecu::tamu::config::Configuration config;
  const MqttSettings preset = read_settings(config);
  EXPECT_EQ(preset.broker(), "localhost:1883");
  EXPECT_EQ(preset.keepalive, 60s);
  EXPECT_EQ(preset.answer_timeout, 60s);
  EXPECT_EQ(preset.connect_timeout, 10s);
  EXPECT_TRUE(preset.presence);
  EXPECT_FALSE(preset.uses_tls());
  for (const auto& [key, value] : {std::pair{"host", "broker"},
                                   {"port", "8883"},
                                   {"username", "user"},
                                   {"password", "secret"},
                                   {"cafile", "ca"},
                                   {"certfile", "certificate"},
                                   {"keyfile", "key"},
                                   {"keepalive", "7"},
                                   {"presence", "no"},
                                   {"client_name", "tested"}}) {
    config.set_value(key, value);
  }
  const MqttSettings read = read_settings(config);
  EXPECT_EQ(read.broker(), "broker:8883");
  EXPECT_THAT((std::vector{read.username, read.password, read.cafile, read.certfile, read.keyfile}),
              ElementsAre("user", "secret", "ca", "certificate", "key"));
  EXPECT_EQ(read.keepalive, 7s);
  EXPECT_EQ(read.answer_timeout, 7s);
  EXPECT_FALSE(read.presence);
  EXPECT_EQ(read.presence_topic(), "system/presence/tested");
  config.set_value("host", "/run/broker");
  EXPECT_EQ(read_settings(config).broker(), "/run/broker");
}

TEST(MqttSettingsTest, KnowsABrokerOnThisMachine) {
  for (const char* host : {"/run/broker", "localhost", "127.0.0.1", "127.1.2.3", "::1"}) {
    EXPECT_TRUE(settings_for(host).is_local()) << host;
  }
  for (const char* host : {"broker", "localhost.example", "128.0.0.1", "127.0.0.1.example", "::2"}) {
    EXPECT_FALSE(settings_for(host).is_local()) << host;
  }
}

// ---- the client ----

/// Runs out of memory when the first connection comes up.
class FailingObserver final : public IConnectionObserver, public ISubscriptionObserver {
 public:
  void connection_up() override {
    if (!std::exchange(failed_, true)) {
      throw std::bad_alloc();
    }
  }
  void connection_down(ConnectionFailure /*failure*/, const std::string& /*reason*/) override {
    throw std::bad_alloc();
  }
  void subscription_refused(const std::string& filter) override { refused.set_value(filter); }
  void subscriptions_settled() override {}
  void messages_dropped(const std::string& /*filter*/, std::uint64_t /*count*/) override {}
  void message(const std::string& /*topic*/, const Message& /*msg*/) override {}

  std::promise<std::string> refused;

 private:
  bool failed_ = false;
};

class ClientAgainstScriptTest : public testing::Test {
 protected:
  void start(tests::ScriptedBroker::Script script, std::shared_ptr<IConnectionObserver> observer = nullptr) {
    broker.emplace(std::move(script));
    client.emplace(settings_for("127.0.0.1", broker->port()), std::move(observer));
    client->connect();
    client->start();
  }
  void publish(const std::string& topic, const std::string& text, bool acknowledged = false,
               bool retained = false) {
    (void)client->publish(topic, text_message(text, acknowledged, retained));
  }

  std::optional<tests::ScriptedBroker> broker;
  std::optional<MqttClient> client;
};

TEST_F(ClientAgainstScriptTest, EachConnectionBringsSubscriptionsThenRetainedMessagesThenThePresence) {
  broker.emplace([lost = false](const std::string& packet) mutable {
    return packet.ends_with("=online") && !std::exchange(lost, true) ? Reaction::close : Reaction::answer;
  });
  MqttSettings settings = settings_for("127.0.0.1", broker->port());
  settings.username = "user";
  settings.password = "secret";
  settings.keepalive = 258s;
  settings.presence = true;
  client.emplace(settings, nullptr);
  const auto observer = std::make_shared<FailingObserver>();
  client->subscribe("in/b", 1, observer);
  client->subscribe("in/a", 0, observer);
  client->subscribe("in/b", 0, std::make_shared<FailingObserver>());
  publish("z", "1", false, true);
  publish("empty", "", true, true);
  publish("a", "", false, true);
  publish("z", "2", false, true);
  client->connect();
  client->start();
  ASSERT_TRUE(broker->wait_for("PUBLISH system/presence/tested=online", 2));
  const std::string each_connection =
      "\x10\x41\x00\x04MQTT\x04\xee\x01\x02\x00\x06tested"
      "\x00\x16system/presence/tested\x00\x07offline\x00\x04user\x00\x06secret"
      "\x82\x09\x00\x04in/b\x01"
      "\x82\x09\x00\x04in/a\x00"
      "\x31\x04\x00\x01z2"
      "\x33\x09\x00\x05"
      "empty"
      "\x31\x03\x00\x01"
      "a"
      "\x33\x20\x00\x16system/presence/testedonline"s;
  EXPECT_EQ(broker->bytes(), each_connection + each_connection);
}

TEST_F(ClientAgainstScriptTest, AStopLeavesTheOfflineThatItCannotSendToTheLastWill) {
  for (const bool acknowledges : {true, false}) {
    broker.emplace([=](const std::string& packet) {
      return packet.starts_with("PUBLISH a=") && !acknowledges ? Reaction::ignore : Reaction::answer;
    });
    MqttSettings settings = settings_for("127.0.0.1", broker->port());
    settings.presence = true;
    client.emplace(settings, nullptr);
    client->connect();
    client->start();
    ASSERT_TRUE(broker->wait_for("PUBLISH system/presence/tested=online"));
    for (int i = 0; i < 20; ++i) {
      publish("a", std::to_string(i), true);
    }
    ASSERT_TRUE(broker->wait_for("PUBLISH a=19"));
    client.emplace(settings, nullptr);
    client->connect();
    client->start();
    ASSERT_TRUE(broker->wait_for("CONNECT", 2));  // the first connection has been read to its end
    const std::size_t expected = acknowledges ? 1 : 0;
    EXPECT_THAT(broker->packets(), Contains("PUBLISH system/presence/tested=offline").Times(expected));
    EXPECT_THAT(broker->packets(), Contains("DISCONNECT").Times(expected));
    client.reset();
  }
}

TEST_F(ClientAgainstScriptTest, MissingAcknowledgementsDoNotDelayOtherTopics) {
  start([](const std::string& packet) {
    return packet.starts_with("PUBLISH acknowledged") ? Reaction::ignore : Reaction::answer;
  });
  publish("up", "1", false, true);
  ASSERT_TRUE(broker->wait_for("PUBLISH up=1"));
  constexpr int more_than_may_be_unacknowledged = 25;
  for (int i = 0; i < more_than_may_be_unacknowledged; ++i) {
    publish("acknowledged", std::to_string(i), true);
  }
  publish("acknowledged", "after these");
  publish("other", "1");
  ASSERT_TRUE(broker->wait_for("PUBLISH other=1"));
  publish("other", "2");
  ASSERT_TRUE(broker->wait_for("PUBLISH other=2"));
  EXPECT_THAT(broker->packets(), Contains("PUBLISH acknowledged=19"));
  EXPECT_THAT(broker->packets(), Not(Contains("PUBLISH acknowledged=20")));
  EXPECT_THAT(broker->packets(), Not(Contains("PUBLISH acknowledged=after these")));
}

TEST_F(ClientAgainstScriptTest, AConnectionThatCouldNotBeSetUpIsNeverKeptAndARefusedSubscriptionIsReported) {
  const auto observer = std::make_shared<FailingObserver>();
  broker.emplace([](const std::string& packet) {
    return packet == "SUBSCRIBE in/a" ? Reaction::refuse : Reaction::answer;
  });
  client.emplace(settings_for("127.0.0.1", broker->port()), observer);
  client->subscribe("in/a", 0, observer);
  publish("kept", "1", false, true);
  client->connect();
  client->start();
  EXPECT_TRUE(broker->wait_for("PUBLISH kept=1"));
  client.reset();
  EXPECT_TRUE(broker->wait_for("DISCONNECT"));
  EXPECT_THAT(broker->packets(), ElementsAre("CONNECT", "CONNECT", "SUBSCRIBE in/a", "UNSUBSCRIBE $echo",
                                             "PUBLISH kept=1", "DISCONNECT"));
  EXPECT_EQ(observer->refused.get_future().get(), "in/a");
}

TEST_F(ClientAgainstScriptTest, AnUnacceptablePublicationIsSetAsideUntilItsValueChanges) {
  for (const bool acknowledged : {false, true}) {
    const std::string log = tests::logged_by([&] {
      start([](const std::string& packet) {
        return packet == "PUBLISH denied=1" || packet == "PUBLISH also denied=1" ? Reaction::close
                                                                                 : Reaction::answer;
      });
      publish("before", "1", acknowledged, true);
      publish("denied", "1", acknowledged, true);
      publish("also denied", "1", acknowledged, true);
      publish("after", "1", acknowledged, true);
      publish("last", "1", acknowledged, true);
      ASSERT_TRUE(broker->wait_for("PUBLISH last=1"));
      publish("last", "2", acknowledged, true);
      ASSERT_TRUE(broker->wait_for("PUBLISH last=2"));
      publish("denied", "2", acknowledged, true);
      EXPECT_TRUE(broker->wait_for("PUBLISH denied=2"));
      client.reset();
    });
    EXPECT_EQ(tests::count(log, "ERROR"), 2) << log;
    EXPECT_EQ(tests::count(log, "topic denied (1 bytes)"), 1) << log;
    EXPECT_EQ(tests::count(log, "topic also denied (1 bytes)"), 1) << log;
  }
}

TEST_F(ClientAgainstScriptTest, AnUnacceptableSubscriptionIsBlamedOnNoPublication) {
  constexpr int denials = 5;
  const auto observer = std::make_shared<FailingObserver>();
  const std::string log = tests::logged_by([&] {
    broker.emplace([subscriptions = 0](const std::string& packet) mutable {
      return packet == "SUBSCRIBE in/a" && ++subscriptions <= denials ? Reaction::close : Reaction::answer;
    });
    client.emplace(settings_for("127.0.0.1", broker->port()), nullptr);
    client->subscribe("in/a", 0, observer);
    publish("kept", "1", false, true);
    client->connect();
    client->start();
    EXPECT_TRUE(broker->wait_for("PUBLISH kept=1"));
    client.reset();
  });
  EXPECT_EQ(tests::count(log, "ERROR"), 0) << log;
}

TEST_F(ClientAgainstScriptTest, AnUnacceptableUnretainedPublicationIsFoundToo) {
  start([](const std::string& packet) {
    return packet.starts_with("PUBLISH denied") ? Reaction::close : Reaction::answer;
  });
  publish("kept", "1", false, true);
  ASSERT_TRUE(broker->wait_for("PUBLISH kept=1"));
  for (int losses = 1; losses <= 4; ++losses) {
    publish("denied", "1");
    ASSERT_TRUE(broker->wait_for("PUBLISH kept=1", losses + 1));
  }
  publish("denied", "1");
  publish("other", "1");
  EXPECT_TRUE(broker->wait_for("PUBLISH other=1"));
  EXPECT_THAT(broker->packets(), Contains("PUBLISH denied=1").Times(4));
}

}  // namespace
