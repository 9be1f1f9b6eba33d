#include <poll.h>

#include "client_fixture.h"
#include "mqtt/mqtt_session.h"
#include "support/mqtt.h"

namespace tests {
namespace {

using namespace ecu::tamu::com;
using namespace ecu::tamu::com::mqtt;

using ClientConnectionTest = ClientTest;

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

TEST(SessionTest, TheKeepAliveIsCountedFromThePacketThatWasSentLast) {
  const Broker broker;
  BusClient bus(broker.port());
  MqttSettings settings = settings_for("127.0.0.1", broker.port());
  settings.answer_timeout = std::chrono::hours(1);
  EventLog listener;
  MqttSession session(settings, listener);
  const auto hear = [&] {
    const bool was_connected = session.is_connected();
    for (const std::size_t before = listener.events.size();
         listener.events.size() == before && session.is_connected() == was_connected;) {
      pollfd fd{session.fd(), session.wanted_events(), 0};
      ASSERT_EQ(::poll(&fd, 1, static_cast<int>(std::chrono::milliseconds(time_limit).count())), 1);
      ASSERT_FALSE(session.handle(fd.revents));
    }
  };
  // Sends a fence after it and waits for the answer; true when the packets sent postpone the keep-alive.
  const auto postponed_by = [&](const std::function<Failure()>& send) {
    const auto due = session.keep_alive_due();
    EXPECT_FALSE(send());
    const bool later = session.keep_alive_due() > due;
    EXPECT_FALSE(session.request_fence(Fence::publication));
    hear();
    return later;
  };
  const auto publish = [&](const std::string& topic) {
    return session.publish(topic, raw_message("x"), std::chrono::steady_clock::now());
  };
  ASSERT_FALSE(session.open(settings.host));
  hear();
  EXPECT_TRUE(postponed_by([&] { return session.subscribe("in/a", 1); }));
  EXPECT_TRUE(postponed_by([&] { return session.unsubscribe("in/b"); }));
  EXPECT_TRUE(postponed_by([&] { return publish("out/x"); }));
  EXPECT_FALSE(postponed_by([&] { return publish("not/a/+/topic"); }));
  EXPECT_TRUE(postponed_by([&] {
    bus.publish("in/a", "to be acknowledged", false, 1);
    hear();
    return Failure();
  }));
  EXPECT_TRUE(postponed_by([&] {
    Failure failure = session.request_fence(Fence::publication);
    hear();
    return failure;
  }));
}

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
