#include <gmock/gmock.h>
#include <poll.h>

#include <functional>
#include <optional>

#include "client_fixture.h"
#include "mqtt/mqtt_session.h"
#include "support/captured_log.h"

namespace tests {
namespace {

using namespace ecu::tamu::com;
using namespace ecu::tamu::com::mqtt;
using testing::ElementsAre;
using testing::HasSubstr;

using ClientConnectionTest = ClientTest;

// ---- publishing ----

TEST_F(ClientConnectionTest, WithoutAConnectionRetainedMessagesAreKeptAndOthersRefused) {
  broker.stop();
  const std::string log = logged_by([&] {
    run();
    EXPECT_EQ(publish("out/lost", "1"), PublishResult::not_connected);
    EXPECT_EQ(publish("out/lost", "2"), PublishResult::not_connected);
    EXPECT_EQ(publish("out/kept", "1", true), PublishResult::success);
    EXPECT_EQ(publish("out/kept", "2", true), PublishResult::success);
    broker.start();
    BusClient late(broker.port());
    late.subscribe("#");
    EXPECT_TRUE(late.wait_for_text("out/kept", "2"));
    EXPECT_TRUE(late.wait_for_text(presence_topic, "online"));
    EXPECT_THAT(late.history(), testing::SizeIs(2));
    EXPECT_EQ(publish("out/lost", "3"), PublishResult::success);
    EXPECT_TRUE(late.wait_for_text("out/lost", "3"));
    stop();
  });
  EXPECT_EQ(count(log, "out/lost"), 1) << log;
  EXPECT_THAT(log, HasSubstr("WARNING [tamu.com.mqtt] no connection"));
}

TEST_F(ClientConnectionTest, AConnectionObserverLearnsWhenAllRetainedMessagesHaveArrived) {
  std::promise<std::size_t> settled;
  std::promise<std::string> lost;
  auto delivered = settled.get_future();
  const auto recorder = make_recorder([&, first = true](const std::string&, const Message&) mutable {
    if (std::exchange(first, false)) {
      EXPECT_EQ(delivered.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    }
  });
  on_connection = [&, told = false](const std::string& event) mutable {
    if (event == "settled") {
      settled.set_value(recorder->seen().size());
    } else if (event != "up" && !std::exchange(told, true)) {
      lost.set_value(event);
    }
  };
  for (int i = 0; i < 200; ++i) {
    bus.publish("in/" + std::to_string(i), std::string(2000, 'x'), true);
  }
  bus.publish("out/done", "");
  ASSERT_TRUE(bus.wait_for("out/done"));
  client->subscribe("in/#", 0, recorder);
  start();
  EXPECT_EQ(delivered.get(), 200u);
  broker.stop();
  EXPECT_EQ(lost.get_future().get(), "down: connection closed by the peer");
}

TEST_F(ClientConnectionTest, AnObserverThatFloodsTheBrokerIsSlowedDown) {
  const Message piece = raw_message(std::string(60'000, 'x'));
  std::vector<int> dropped;
  const auto observer = make_recorder([&](const std::string& topic, const Message&) {
    const bool frozen = topic == "in/frozen";
    if (frozen) {
      gate.wait();
    }
    int count = 0;
    for (int i = 0; i < (frozen ? 1000 : 100); ++i) {
      count += client->publish("bulk", piece) == PublishResult::success ? 0 : 1;
    }
    dropped.push_back(count);
  });
  client->subscribe("in/#", 0, observer);
  start();
  bus.publish("in/healthy", "");
  bus.publish("in/frozen", "");
  ASSERT_TRUE(observer->wait_for(2));
  broker.freeze();
  gate.count_down();
  client->unsubscribe("in/#", observer);
  broker.thaw();
  EXPECT_THAT(dropped, ElementsAre(0, testing::Gt(0)));
}

/// The test's own session, which records what arrives.
class SessionTest : public testing::Test, public ConnectionListener {
 protected:
  void connection_up() override {}
  void connection_down(ConnectionFailure /*failure*/, const std::string& /*reason*/) override {}
  void message(const std::string& /*topic*/, Message /*message*/) override { ++heard; }
  void oversized_message(const std::string& /*topic*/) override { ++heard; }
  void subscription_refused(const std::string& /*filter*/) override {}
  void fence_answered(Fence /*fence*/) override { ++heard; }

  void hear() {
    const bool was_connected = session->is_connected();
    for (const int before = heard; heard == before && session->is_connected() == was_connected;) {
      pollfd fd{session->fd(), session->wanted_events(), 0};
      ASSERT_EQ(::poll(&fd, 1, static_cast<int>(std::chrono::milliseconds(time_limit).count())), 1);
      ASSERT_FALSE(session->handle(fd.revents));
    }
  }
  /// Sends a fence after it and waits for the answer; true when the packets sent postpone the keep-alive.
  bool puts_keep_alive_off(const std::function<Failure()>& send) {
    const auto due = session->keep_alive_due();
    EXPECT_FALSE(send());
    const bool later = session->keep_alive_due() > due;
    EXPECT_FALSE(session->request_fence(Fence::publication));
    hear();
    return later;
  }

  Broker broker;
  BusClient bus{broker.port()};
  MqttSettings settings;
  std::optional<MqttSession> session;
  int heard = 0;
};

TEST_F(SessionTest, TheKeepAliveIsCountedFromThePacketThatWasSentLast) {
  settings.host = "127.0.0.1";
  settings.port = broker.port();
  settings.keepalive = std::chrono::seconds(60);
  settings.answer_timeout = std::chrono::hours(1);
  session.emplace(settings, *this);
  ASSERT_FALSE(session->open(settings.host));
  hear();
  EXPECT_TRUE(puts_keep_alive_off([this] { return session->subscribe("in/a", 1); }));
  EXPECT_TRUE(puts_keep_alive_off([this] { return session->unsubscribe("in/b"); }));
  EXPECT_TRUE(puts_keep_alive_off([this] {
    Failure failure = session->request_fence(Fence::publication);
    hear();
    return failure;
  }));
  EXPECT_TRUE(puts_keep_alive_off([this] { return session->publish("out/x", raw_message("x")); }));
  EXPECT_FALSE(puts_keep_alive_off([this] { return session->publish("not/a/+/topic", raw_message("x")); }));
  EXPECT_TRUE(puts_keep_alive_off([this] {
    bus.publish("in/a", "to be acknowledged", false, 1);
    hear();
    return Failure();
  }));
}

// ---- publications that the broker does not want ----

struct AccessList {
  TempDir dir;
  std::string file =
      dir.write("access", "topic readwrite system/#\ntopic readwrite out/#\ntopic deny out/denied\n");
};

/// The broker denies a topic. A broker that ends the connection because of it must cause no other damage.
class DeniedTopicTest : private AccessList, public ClientTest {
 protected:
  DeniedTopicTest() : ClientTest("allow_anonymous true\nacl_file " + file) {}
};

TEST_F(DeniedTopicTest, ADeniedTopicDoesNotBlockOthers) {
  publish("out/before", "1", true);
  publish("out/denied", "1", true);
  publish("out/after", "1", true);
  start();
  EXPECT_TRUE(bus.wait_for_text("out/before", "1"));
  EXPECT_TRUE(bus.wait_for_text("out/after", "1"));
  for (const char* text : {"2", "3", "4"}) {
    publish("out/denied", text);
    publish("out/after", text, true);
    EXPECT_TRUE(bus.wait_for_text("out/after", text));
  }
  for (const BusMessage& message : bus.history()) {
    EXPECT_NE(message.topic, "out/denied");
  }
}

// ---- stopping ----

TEST_F(ClientConnectionTest, RunReturnsWhenNoObserverIsCalledAndTheConnectionIsClosed) {
  const auto observer = make_blocked_recorder();
  client->subscribe("in/a", 0, observer);
  start();
  bus.publish("in/a", "1");
  bus.publish("in/a", "2");
  ASSERT_TRUE(observer->wait_for(1));
  publish("out/last", "words");
  client->stop();
  EXPECT_TRUE(bus.wait_for_text("out/last", "words"));
  EXPECT_TRUE(bus.wait_for_text(presence_topic, "offline"));
  EXPECT_FALSE(has_returned(running));
  gate.count_down();
  EXPECT_TRUE(returns_soon(running));
  EXPECT_THAT(observer->seen(), testing::SizeIs(1));
  EXPECT_TRUE(broker.wait_for_log("tested disconnected"));
}

TEST_F(ClientConnectionTest, AStopBeforeTheStartTakesEffect) {
  client->stop();
  run();
  EXPECT_TRUE(returns_soon(running));
}

}  // namespace
}  // namespace tests
