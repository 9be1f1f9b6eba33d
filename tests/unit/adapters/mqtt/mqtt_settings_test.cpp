#include "mqtt/mqtt_settings.h"

#include <set>

#include "mqtt/backoff.h"
#include "mqtt/refused_subscriptions.h"
#include "mqtt/repetition.h"
#include "support/mqtt.h"
#include "support/testing.h"

namespace {

using namespace ecu::tamu::com::mqtt;
using tests::settings_for;

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

TEST(BackoffTest, ASpreadMakesEveryPauseRandom) {
  MqttSettings settings = settings_for("localhost");
  settings.reconnect_spread = 60s;
  Backoff backoff(settings);
  for (const auto pause : {&Backoff::next, &Backoff::restart}) {
    Backoff::Duration shortest = 60s, longest = 0s;
    for (int round = 0; round < 200; ++round) {
      const Backoff::Duration next = (backoff.*pause)();
      shortest = std::min(shortest, next);
      longest = std::max(longest, next);
    }
    EXPECT_LT(shortest, 10s);
    EXPECT_GT(longest, 50s);
    EXPECT_LE(longest, 60s);
  }
}

TEST(RepetitionTest, FollowsAConnectionAndLateAcknowledgementsEverLaterOnASlowLink) {
  const auto at = [](int seconds) {
    return Repetition::Clock::time_point(std::chrono::seconds(1000 + seconds));
  };
  Repetition repetition(5s);
  EXPECT_FALSE(repetition.take_due(at(0)));
  repetition.connection_up(at(0));
  EXPECT_FALSE(repetition.take_due(at(4)));
  EXPECT_TRUE(repetition.take_due(at(5)));
  // The second of a line: when the repetition is due.
  for (const auto& [late, due] : {std::pair{8, 18}, {25, 45}, {46, 86}, {200, 205}}) {
    repetition.acknowledged_late(at(late));
    repetition.acknowledged_late(at(late + 1));
    EXPECT_EQ(repetition.due(), at(due));
    EXPECT_TRUE(repetition.take_due(at(due)));
  }
  repetition.acknowledged_late(at(300));
  repetition.connection_lost();
  EXPECT_FALSE(repetition.take_due(at(400)));
  Repetition never(0s);
  never.connection_up(at(0));
  never.acknowledged_late(at(0));
  EXPECT_FALSE(never.take_due(at(1000)));
}

TEST(RefusedSubscriptionsTest, AreDueAfterPausesThatDoubleOnOneConnection) {
  const auto at = [](int seconds) {
    return RefusedSubscriptions::Clock::time_point(std::chrono::seconds(1000 + seconds));
  };
  RefusedSubscriptions subscriptions(60s);
  // The second of a refusal: when the next request is due.
  for (const auto& [refused, due] : {std::pair{0, 60}, {60, 180}, {180, 420}, {10'000, 10'480}}) {
    EXPECT_EQ(subscriptions.refused("a", at(refused)), refused == 0);
    EXPECT_FALSE(subscriptions.take_due(at(due - 1)));
    EXPECT_TRUE(subscriptions.take_due(at(due)));
  }
  EXPECT_FALSE(subscriptions.refused("a", at(11'000)));
  subscriptions.connection_lost();
  EXPECT_FALSE(subscriptions.take_due(at(100'000)));
  EXPECT_TRUE(subscriptions.refused("b", at(100'000)));
  EXPECT_EQ(subscriptions.due(), at(100'060));
  EXPECT_TRUE(subscriptions.granted("a"));
  EXPECT_TRUE(subscriptions.refused("a", at(100'001)));
  RefusedSubscriptions never(0s);
  EXPECT_TRUE(never.refused("a", at(0)));
  EXPECT_FALSE(never.take_due(at(100'000)));
}

TEST(MqttSettingsTest, ReadsEveryKeyOfTheConfiguration) {
  auto config = std::make_unique<ecu::tamu::config::Configuration>();
  const MqttSettings preset = read_settings(*config);
  EXPECT_EQ(preset.broker(), "localhost:1883");
  EXPECT_EQ(preset.keepalive, 60s);
  EXPECT_EQ(preset.answer_timeout, 60s);
  EXPECT_EQ(preset.connect_timeout, 10s);
  ASSERT_TRUE(preset.presence);
  EXPECT_THAT((std::vector{preset.presence->topic, preset.presence->online, preset.presence->offline,
                           preset.presence->lost}),
              ElementsAre("system/presence/", "online", "offline", "offline"));
  EXPECT_FALSE(preset.uses_tls());
  std::istringstream file(
      "host=broker\nport=8883\nusername=user\npassword=secret\ncafile=ca\ncertfile=certificate\n"
      "keyfile=key\nkeepalive=7\npresence=no\nclient_name=tested");
  set_config_from_input(config, file);
  const MqttSettings read = read_settings(*config);
  EXPECT_EQ(read.broker(), "broker:8883");
  EXPECT_THAT((std::vector{read.username, read.password, read.cafile, read.certfile, read.keyfile}),
              ElementsAre("user", "secret", "ca", "certificate", "key"));
  EXPECT_EQ(read.keepalive, 7s);
  EXPECT_EQ(read.answer_timeout, 7s);
  EXPECT_FALSE(read.presence);
  config->set_value("host", "/run/broker");
  EXPECT_EQ(read_settings(*config).broker(), "/run/broker");
}

TEST(MqttSettingsTest, RecognisesABrokerOnThisMachine) {
  for (const char* host : {"/run/broker", "localhost", "127.0.0.1", "127.1.2.3", "::1"}) {
    EXPECT_TRUE(settings_for(host).is_local()) << host;
  }
  for (const char* host : {"broker", "localhost.example", "128.0.0.1", "127.0.0.1.example", "::2"}) {
    EXPECT_FALSE(settings_for(host).is_local()) << host;
  }
}

}  // namespace
