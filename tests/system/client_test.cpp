#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <future>
#include <latch>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/date_time.h>

#include "support/broker.h"
#include "support/bus_client.h"
#include "support/captured_log.h"
#include "support/rt_messages.h"

namespace tests {
namespace {

using namespace ecu::tamu::com;
using ecu::tamu::DateTime;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string presence_topic = "system/presence/tested";

/// Takes down "topic=payload", then does what the test wants done.
class Recorder final : public ISubscriptionObserver {
 public:
  using Action = std::function<void(const std::string& topic, const Message& msg)>;

  explicit Recorder(Action action) : action_(std::move(action)) {}

  void message(const std::string& topic, const Message& msg) override {
    {
      const std::lock_guard lock(mutex_);
      seen_.push_back(topic + "=" + std::string(msg.payload.begin(), msg.payload.end()));
      changed_.notify_all();
    }
    if (action_) {
      action_(topic, msg);
    }
  }

  bool wait_for(std::size_t calls) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [&] { return seen_.size() >= calls; });
  }
  std::vector<std::string> seen() {
    const std::lock_guard lock(mutex_);
    return seen_;
  }

 private:
  const Action action_;
  std::mutex mutex_;  // guards the rest
  std::condition_variable changed_;
  std::vector<std::string> seen_;
};

std::shared_ptr<Recorder> make_recorder(Recorder::Action action = nullptr) {
  return std::make_shared<Recorder>(std::move(action));
}

/// Calls `on_event` with "up", "down" or "settled"; the broker of these tests refuses nothing.
class ConnectionLog final : public IConnectionObserver {
 public:
  explicit ConnectionLog(std::function<void(const std::string&)> on_event) : on_event_(std::move(on_event)) {}

  void connection_up() override { on_event_("up"); }
  void connection_down(const std::string& reason) override { on_event_("down: " + reason); }
  void subscription_refused(const std::string& /*filter*/) override {}
  void subscriptions_settled() override { on_event_("settled"); }

 private:
  const std::function<void(const std::string&)> on_event_;
};

/// The client under test, and another user of the bus that hears all of "out/" and "system/".
class ClientTest : public testing::Test {
 protected:
  ClientTest() {
    bus.subscribe("system/#");
    bus.subscribe("out/#");
    auto config = std::make_unique<ecu::tamu::config::Configuration>();
    config->set_value("client_name", "tested");
    config->set_value("host", "127.0.0.1");
    config->set_value("port", std::to_string(broker.port()));
    client = create_client(config, TransportType::mqtt,
                           std::make_shared<ConnectionLog>([this](const std::string& event) {
                             if (on_connection) {
                               on_connection(event);
                             }
                           }));
  }
  ~ClientTest() override {
    if (!gate.try_wait()) {
      gate.count_down();
    }
    stop();
  }

  /// Runs the client; its connection and what it subscribed to before are there on return.
  void start() {
    run();
    ASSERT_TRUE(bus.wait_for_text(presence_topic, "online"));
  }
  void run() {
    client->connect();
    client->start();
    running = std::async(std::launch::async, [this] { client->run(); });
  }
  void stop() {
    client->stop();
    if (running.valid()) {
      ASSERT_EQ(running.wait_for(patience), std::future_status::ready);
    }
  }
  PublishResult publish(const std::string& topic, const std::string& text, bool retained = false) {
    Message message = raw_message(text);
    message.retained = retained;
    return client->publish(topic, std::move(message));
  }
  std::shared_ptr<Recorder> make_blocked_recorder() {
    return make_recorder([this](const std::string&, const Message&) { gate.wait(); });
  }

  std::function<void(const std::string&)> on_connection;  // set before `start`
  std::latch gate{1};                                     // blocked observers wait for it
  Broker broker;
  BusClient bus{broker.port()};
  std::shared_ptr<ITransportClient> client;
  std::future<void> running;
};

bool returns_soon(const std::future<void>& call) {
  return call.wait_for(patience) == std::future_status::ready;
}
bool has_returned(const std::future<void>& call) {
  return call.wait_for(std::chrono::milliseconds(50)) == std::future_status::ready;
}

// ---- delivery ----

TEST_F(ClientTest, EachMessageIsDeliveredOnceAndInOrderToEachObserver) {
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

TEST_F(ClientTest, AReceivedMessageTellsItsTimeAndHowItWasSent) {
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

TEST_F(ClientTest, ABlockedObserverDelaysNeitherTheOthersNorTheNetwork) {
  const auto blocked = make_blocked_recorder();
  const auto also_blocked = make_blocked_recorder();
  const auto free = make_recorder();
  client->subscribe("in/a", 0, blocked);
  client->subscribe("in/a", 0, also_blocked);
  client->subscribe("in/#", 0, free);
  start();
  bus.publish("in/a", "1");
  EXPECT_TRUE(blocked->wait_for(1) && also_blocked->wait_for(1));
  bus.publish("in/b", "2");
  EXPECT_TRUE(free->wait_for(2));
  publish("out/x", "sent");
  EXPECT_TRUE(bus.wait_for_text("out/x", "sent"));
  gate.count_down();
}

TEST_F(ClientTest, AFloodOnOneTopicDropsTheOldestOfThatTopicAlone) {
  constexpr int sent = 1000, kept = 256;
  const auto blocked = make_blocked_recorder();
  const auto witness = make_recorder();
  client->subscribe("in/flood", 1, blocked);
  client->subscribe("in/other", 1, blocked);
  client->subscribe("in/#", 1, witness);
  const std::string log = logged_by([&] {
    start();
    bus.publish("in/other", "first", false, 1);
    EXPECT_TRUE(blocked->wait_for(1));
    bus.publish("in/other", "second", false, 1);
    for (int i = 1; i <= sent; ++i) {
      bus.publish("in/flood", std::to_string(i), false, 1);
      // So that the witness keeps up.
      ASSERT_TRUE(i % 100 != 0 || witness->wait_for(static_cast<std::size_t>(i) + 2));
    }
    gate.count_down();
    EXPECT_TRUE(blocked->wait_for(kept + 2));
    stop();
  });
  const auto seen = blocked->seen();
  ASSERT_EQ(seen.size(), kept + 2U);
  EXPECT_THAT((std::vector{seen[1], seen[2], seen.back()}),
              ElementsAre("in/other=second", "in/flood=745", "in/flood=1000"));
  EXPECT_EQ(count(log, "WARNING"), 1) << log;
  EXPECT_THAT(log, testing::AllOf(HasSubstr("in/flood"), HasSubstr(" 744 ")));
}

TEST_F(ClientTest, AnExceptionOutOfAnObserverIsLoggedAndDeliveryGoesOn) {
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

// ---- taking subscriptions back ----

TEST_F(ClientTest, UnsubscribeWaitsForTheCallThatIsUnderWay) {
  const auto observer = make_blocked_recorder();
  const auto witness = make_recorder();
  client->subscribe("in/a", 0, observer);
  client->subscribe("in/#", 0, witness);
  start();
  bus.publish("in/a", "1");
  ASSERT_TRUE(observer->wait_for(1));
  bus.publish("in/a", "2");
  ASSERT_TRUE(witness->wait_for(2));
  const auto call = std::async(std::launch::async, [&] { client->unsubscribe("in/a", observer); });
  EXPECT_FALSE(has_returned(call));
  gate.count_down();
  EXPECT_TRUE(returns_soon(call));
  bus.publish("in/a", "3");
  ASSERT_TRUE(witness->wait_for(3));
  stop();
  EXPECT_THAT(observer->seen(), ElementsAre("in/a=1"));
  EXPECT_EQ(observer.use_count(), 1);
}

TEST_F(ClientTest, AnObserverMayUseTheClientAsItLikes) {
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

// ---- publishing ----

TEST_F(ClientTest, WithoutAConnectionRetainedMessagesAreKeptAndOthersRefused) {
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

TEST_F(ClientTest, EachConnectionBringsTheLatestRetainedMessagesInTheOrderOfTheirFirstPublication) {
  publish("out/a", "1", true);
  publish("out/b", "1", true);
  publish("out/a", "2", true);
  start();
  publish("out/passing", "1");
  publish("out/c", "1", true);
  ASSERT_TRUE(bus.wait_for_text("out/c", "1"));
  { BusClient of_the_same_name(broker.port(), "tested"); }  // takes its connection away
  ASSERT_TRUE(bus.wait_for_text("out/c", "1"));
  std::vector<std::string> heard;
  for (const BusMessage& message : bus.history()) {
    if (message.topic.starts_with("out/")) {
      heard.push_back(message.topic + '=' + message.payload);
    }
  }
  EXPECT_THAT(heard, ElementsAre("out/a=2", "out/b=1", "out/passing=1", "out/c=1",  //
                                 "out/a=2", "out/b=1", "out/c=1"));
}

TEST_F(ClientTest, AnObserverOfTheConnectionKnowsWhenAllThatIsRetainedHasCome) {
  const auto recorder = make_recorder([first = true](const std::string&, const Message&) mutable {
    if (std::exchange(first, false)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  });
  std::promise<std::size_t> settled;
  std::promise<std::string> lost;
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
  EXPECT_EQ(settled.get_future().get(), 200u);
  broker.stop();
  EXPECT_EQ(lost.get_future().get(), "down: connection closed by the peer");
}

TEST_F(ClientTest, AnAcknowledgedMessageLeavesWithQualityOfServiceOne) {
  start();
  Message message = raw_message("x");
  message.acknowledged = true;
  client->publish("out/x", message);
  const auto heard = bus.wait_for("out/x");
  ASSERT_TRUE(heard);
  EXPECT_EQ(heard->qos, 1);
  EXPECT_FALSE(heard->retained);
}

TEST_F(ClientTest, ABrokerThatTakesNothingBlocksNobodyAndLosesNoLatestValue) {
  start();
  broker.freeze();
  const std::string piece(10'000, 'x');
  auto result = PublishResult::success;
  for (int i = 0; i < 5000 && result == PublishResult::success; ++i) {
    result = publish("out/bulk", piece);
  }
  EXPECT_EQ(result, PublishResult::overload);
  EXPECT_EQ(publish("out/kept", "1", true), PublishResult::success);
  EXPECT_EQ(publish("out/kept", "2", true), PublishResult::success);
  broker.thaw();
  EXPECT_TRUE(bus.wait_for_text("out/kept", "2"));
}

// ---- stopping ----

TEST_F(ClientTest, RunReturnsWhenNoObserverIsCalledAndTheConnectionIsClosed) {
  const auto observer = make_blocked_recorder();
  client->subscribe("in/a", 0, observer);
  start();
  bus.publish("in/a", "1");
  bus.publish("in/a", "2");
  ASSERT_TRUE(observer->wait_for(1));
  publish("out/last", "words");
  client->stop();
  EXPECT_FALSE(has_returned(running));
  gate.count_down();
  EXPECT_TRUE(returns_soon(running));
  EXPECT_THAT(observer->seen(), testing::SizeIs(1));
  EXPECT_TRUE(bus.wait_for_text("out/last", "words"));
  EXPECT_TRUE(bus.wait_for_text(presence_topic, "offline"));
  EXPECT_TRUE(broker.wait_for_log("tested disconnected"));
}

TEST_F(ClientTest, AStopBeforeTheStartHolds) {
  client->stop();
  run();
  EXPECT_TRUE(returns_soon(running));
}

}  // namespace
}  // namespace tests
