#include "mqtt/mqtt_client.h"

#include "support/mqtt.h"
#include "support/scripted_broker.h"
#include "support/testing.h"

namespace {

using namespace ecu::tamu::com;
using namespace ecu::tamu::com::mqtt;
using Reaction = tests::ScriptedBroker::Reaction;
using tests::raw_message;
using tests::settings_for;

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
  void make(tests::ScriptedBroker::Script script, std::shared_ptr<IConnectionObserver> observer = nullptr) {
    broker.emplace(std::move(script));
    settings.port = broker->port();
    client.emplace(settings, std::move(observer));
  }
  void run() {
    client->connect();
    client->start();
  }
  /// With a subscriber, the client subscribes to "in/a" and publishes on "kept" before it connects.
  void start(tests::ScriptedBroker::Script script, std::shared_ptr<IConnectionObserver> observer = nullptr,
             const std::shared_ptr<ISubscriptionObserver>& subscriber = nullptr) {
    make(std::move(script), std::move(observer));
    if (subscriber) {
      client->subscribe("in/a", 0, subscriber);
      publish("kept", "1", false, true);
    }
    run();
  }
  void publish(const std::string& topic, const std::string& text, bool acknowledged = false,
               bool retained = false) {
    (void)client->publish(topic, raw_message(text, acknowledged, retained));
  }

  MqttSettings settings = settings_for("127.0.0.1");
  std::optional<tests::ScriptedBroker> broker;
  std::optional<MqttClient> client;
};

TEST_F(ClientAgainstScriptTest, NewConnectionSendsSubscriptionsThenRetainedMessagesThenPresence) {
  settings.username = "user";
  settings.password = "secret";
  settings.keepalive = 258s;
  settings.presence = tests::presence_of("tested");
  make([lost = false](const std::string& packet) mutable {
    return packet.ends_with("=online") && !std::exchange(lost, true) ? Reaction::close : Reaction::answer;
  });
  const auto observer = std::make_shared<FailingObserver>();
  client->subscribe("in/b", 1, observer);
  client->subscribe("in/a", 0, observer);
  client->subscribe("in/b", 0, std::make_shared<FailingObserver>());
  publish("z", "1", false, true);
  publish("empty", "", true, true);
  publish("a", "", false, true);
  publish("z", "2", false, true);
  run();
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
  settings.presence = tests::presence_of("tested");
  for (const bool acknowledges : {true, false}) {
    start([=](const std::string& packet) {
      return packet.starts_with("PUBLISH a=") && !acknowledges ? Reaction::ignore : Reaction::answer;
    });
    ASSERT_TRUE(broker->wait_for("PUBLISH system/presence/tested=online"));
    for (int i = 0; i < 20; ++i) {
      publish("a", std::to_string(i), true);
    }
    ASSERT_TRUE(broker->wait_for("PUBLISH a=19"));
    client.emplace(settings, nullptr);
    run();
    ASSERT_TRUE(broker->wait_for("CONNECT", 2));  // the first connection has been read to its end
    const std::size_t expected = acknowledges ? 1 : 0;
    EXPECT_THAT(broker->packets(), Contains("PUBLISH system/presence/tested=offline").Times(expected));
    EXPECT_THAT(broker->packets(), Contains("DISCONNECT").Times(expected));
    client.reset();
  }
}

TEST_F(ClientAgainstScriptTest, PresenceAndRetainedMessagesAreRepeatedOnceAfterAConnection) {
  settings.presence = tests::presence_of("tested");
  settings.repeat_after = 1s;
  make([](const std::string&) { return Reaction::answer; });
  publish("a", "1", true, true);
  publish("a", "2", true, true);
  run();
  ASSERT_TRUE(broker->wait_for("PUBLISH system/presence/tested=online", 2));
  EXPECT_THAT(broker->packets(), Contains("PUBLISH a=2").Times(2));
  EXPECT_THAT(broker->packets(), Contains("PUBLISH a=1").Times(0));
}

TEST_F(ClientAgainstScriptTest, ATopicIsClearedAgainOnlyUntilTheBrokerHasAcknowledgedIt) {
  std::promise<void> cleared;
  settings.topic_cleared = [&](const std::string& topic) {
    EXPECT_EQ(topic, "old");
    cleared.set_value();
  };
  make([acknowledged = false](const std::string& packet) mutable {
    if (packet == "PUBLISH close=") {
      return Reaction::close;
    }
    return packet == "PUBLISH old=" && !std::exchange(acknowledged, true) ? Reaction::close
                                                                          : Reaction::answer;
  });
  publish("old", "value", true, true);
  publish("old", "", true, true);
  publish("kept", "1", true, true);
  run();
  EXPECT_EQ(cleared.get_future().wait_for(tests::time_limit), std::future_status::ready);
  publish("close", "");
  ASSERT_TRUE(broker->wait_for("PUBLISH kept=1", 2));  // "old" was published first
  EXPECT_THAT(broker->packets(), Contains("PUBLISH old=").Times(2));
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
  EXPECT_THAT(broker->packets(), testing::Not(Contains("PUBLISH acknowledged=20")));
  EXPECT_THAT(broker->packets(), testing::Not(Contains("PUBLISH acknowledged=after these")));
}

TEST_F(ClientAgainstScriptTest, AConnectionThatCouldNotBeSetUpIsNeverKeptAndARefusedSubscriptionIsReported) {
  const auto observer = std::make_shared<FailingObserver>();
  start(
      [](const std::string& packet) {
        return packet == "SUBSCRIBE in/a" ? Reaction::refuse : Reaction::answer;
      },
      observer, observer);
  EXPECT_TRUE(broker->wait_for("PUBLISH kept=1"));
  client.reset();
  EXPECT_TRUE(broker->wait_for("DISCONNECT"));
  EXPECT_THAT(broker->packets(), ElementsAre("CONNECT", "CONNECT", "SUBSCRIBE in/a", "UNSUBSCRIBE $echo",
                                             "PUBLISH kept=1", "DISCONNECT"));
  EXPECT_EQ(observer->refused.get_future().get(), "in/a");
}

TEST_F(ClientAgainstScriptTest, ARefusedSubscriptionIsReportedOnceAndRequestedUntilItIsGranted) {
  settings.retest_after = 1s;
  const std::string log = tests::logged_by([&] {
    start(
        [requests = 0](const std::string& packet) mutable {
          if (packet == "PUBLISH lose=1") {
            return Reaction::close;
          }
          return packet == "SUBSCRIBE in/a" && ++requests < 3 ? Reaction::refuse : Reaction::answer;
        },
        nullptr, std::make_shared<FailingObserver>());
    ASSERT_TRUE(broker->wait_for("PUBLISH kept=1"));
    publish("lose", "1");
    ASSERT_TRUE(broker->wait_for("SUBSCRIBE in/a", 3));
    publish("lose", "2");
    ASSERT_TRUE(broker->wait_for("PUBLISH lose=2"));
    client.reset();
  });
  EXPECT_EQ(tests::count(log, "WARNING [tamu.com.mqtt] broker refuses the subscription to in/a\n"), 1) << log;
  EXPECT_EQ(
      tests::count(log, "NOTICE [tamu.com.mqtt] broker grants the subscription to in/a that it had refused"),
      1)
      << log;
}

TEST_F(ClientAgainstScriptTest, AnUnacceptablePublicationIsSetAsideUntilItsValueChanges) {
  for (const bool acknowledged : {false, true}) {
    const std::string log = tests::logged_by([&] {
      start([](const std::string& packet) {
        return packet.ends_with("denied=1") ? Reaction::close : Reaction::answer;
      });
      for (const char* topic : {"before", "denied", "also denied", "after", "last"}) {
        publish(topic, "1", acknowledged, true);
      }
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

TEST_F(ClientAgainstScriptTest, RefusedSubscriptionSetsNoPublicationAside) {
  constexpr int denials = 5;
  const std::string log = tests::logged_by([&] {
    start(
        [subscriptions = 0](const std::string& packet) mutable {
          return packet == "SUBSCRIBE in/a" && ++subscriptions <= denials ? Reaction::close
                                                                          : Reaction::answer;
        },
        nullptr, std::make_shared<FailingObserver>());
    EXPECT_TRUE(broker->wait_for("PUBLISH kept=1"));
    client.reset();
  });
  EXPECT_EQ(tests::count(log, "ERROR"), 0) << log;
}

TEST_F(ClientAgainstScriptTest, AnUnacceptableUnretainedPublicationIsSetAsideToo) {
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
