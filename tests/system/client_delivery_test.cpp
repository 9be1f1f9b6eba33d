#include <ecu/tamu/date_time.h>

#include "client_fixture.h"

namespace tests {
namespace {

using namespace ecu::tamu::com;
using ecu::tamu::DateTime;

using ClientDeliveryTest = ClientTest;

TEST_F(ClientDeliveryTest, EachMessageIsDeliveredOnceAndInOrderToEachObserver) {
  const auto all = make_recorder(), some = make_recorder();
  for (const char* topic : {"in/a", "in/b", "in/a", "in/+", "in/#"}) {
    client->subscribe(topic, 0, all);
  }
  client->subscribe("in/+/c", 0, some);
  client->subscribe("in/b", 0, some);
  start();
  const auto late = make_recorder();
  client->subscribe("in/a", 2, late);
  ASSERT_TRUE(broker.wait_for_log("tested"));
  for (const char* topic : {"in/a", "in/b", "in/x/c", "out/side", "in/b", "in/a"}) {
    bus.publish(topic, "1", false, 1);
  }
  bus.publish("in/b", "end");
  ASSERT_TRUE(all->wait_for(6) && some->wait_for(4));
  EXPECT_THAT(all->seen(), ElementsAre("in/a=1", "in/b=1", "in/x/c=1", "in/b=1", "in/a=1", "in/b=end"));
  EXPECT_THAT(some->seen(), ElementsAre("in/b=1", "in/x/c=1", "in/b=1", "in/b=end"));
}

TEST_F(ClientDeliveryTest, AReceivedMessageHasItsTimeAndFlags) {
  bus.publish("out/kept", "k", true, 1);
  ASSERT_TRUE(bus.wait_for_text("out/kept", "k"));
  const auto began = DateTime::time_since_boot_ns();
  std::vector<std::string> flags;
  const auto observer = make_recorder([&](const std::string&, const Message& msg) {
    flags.push_back(std::string(msg.retained ? "retained " : "") + (msg.acknowledged ? "acknowledged" : ""));
    EXPECT_TRUE(began < msg.timestamp && msg.timestamp <= DateTime::time_since_boot_ns() && msg.header == 0);
  });
  client->subscribe("out/#", 1, observer);
  start();
  ASSERT_TRUE(observer->wait_for(1));
  bus.publish("out/plain", "p", false, 0);
  bus.publish("out/acknowledged", "a", true, 2);
  ASSERT_TRUE(observer->wait_for(3));
  stop();
  EXPECT_THAT(flags, ElementsAre("retained acknowledged", "", "acknowledged"));
}

TEST_F(ClientDeliveryTest, AFloodForABlockedObserverIsReportedWithTheNumberOfDroppedMessages) {
  const auto blocked = make_blocked_recorder(), witness = make_recorder();
  client->subscribe("in/flood", 1, blocked);
  client->subscribe("in/#", 1, witness);
  std::promise<void> all_reported;
  on_connection = [&, dropped = 0](const std::string& event) mutable {
    if (event.starts_with("dropped: ") && event.ends_with(" in/flood") &&
        (dropped += std::stoi(event.substr(9))) == 43) {
      all_reported.set_value();
    }
  };
  start();
  for (std::size_t i = 1; i <= 300; ++i) {
    bus.publish("in/flood", std::to_string(i), false, 1);
    ASSERT_TRUE(i % 100 != 1 || witness->wait_for(i));  // so that the witness keeps up
    ASSERT_TRUE(blocked->wait_for(1));
  }
  ASSERT_TRUE(witness->wait_for(300));
  EXPECT_EQ(all_reported.get_future().wait_for(time_limit), std::future_status::ready);
  gate.count_down();
}

TEST_F(ClientDeliveryTest, AnExceptionFromAnObserverIsLoggedAndDeliveryContinues) {
  const auto failing = make_recorder([](const std::string& topic, const Message&) {
    if (topic == "in/1") {
      throw std::runtime_error("out of order");
    }
    throw 1;
  });
  client->subscribe("in/#", 0, failing);
  const std::string log = logged_by([&] {
    start();
    bus.publish("in/1", "");
    bus.publish("in/2", "");
    bus.publish("in/3", "");
    EXPECT_TRUE(failing->wait_for(3));
    stop();
  });
  EXPECT_EQ(count(log, " ERROR "), 3) << log;
  EXPECT_THAT(log, testing::AllOf(HasSubstr("in/1"), HasSubstr("out of order"), HasSubstr("in/2")));
}

TEST_F(ClientDeliveryTest, UnsubscribeWaitsForACallInProgressOnThatTopicOnly) {
  const auto observer = make_blocked_recorder();
  const auto witness = make_recorder();
  for (const char* topic : {"in/a", "in/b"}) {
    client->subscribe(topic, 0, observer);
  }
  client->subscribe("in/#", 0, witness);
  start();
  bus.publish("in/a", "1");
  ASSERT_TRUE(observer->wait_for(1));
  const auto other = std::async(std::launch::async, [&] { client->unsubscribe("in/b", observer); });
  EXPECT_TRUE(returns_soon(other));
  const auto call = std::async(std::launch::async, [&] { client->unsubscribe("in/a", observer); });
  EXPECT_FALSE(has_returned(call));
  gate.count_down();
  EXPECT_TRUE(returns_soon(call));
  bus.publish("in/a", "2");
  ASSERT_TRUE(witness->wait_for(2));
  stop();
  EXPECT_THAT(observer->seen(), ElementsAre("in/a=1"));
  EXPECT_EQ(observer.use_count(), 1);
}

TEST_F(ClientDeliveryTest, AnObserverMayUseTheWholeClient) {
  std::shared_ptr<Recorder> observer;
  observer = make_recorder([&](const std::string& topic, const Message&) {
    if (topic == "in/1") {
      client->unsubscribe("in/1", observer);
      client->subscribe("in/2", 0, observer);
      publish("out/x", "moved");
    } else {
      client->stop();
    }
  });
  client->subscribe("in/1", 0, observer);
  start();
  bus.publish("in/1", "");
  ASSERT_TRUE(bus.wait_for_text("out/x", "moved"));
  bus.publish("in/1", "again");
  bus.publish("in/2", "");
  EXPECT_TRUE(returns_soon(running));
  EXPECT_THAT(observer->seen(), ElementsAre("in/1=", "in/2="));
}

}  // namespace
}  // namespace tests
