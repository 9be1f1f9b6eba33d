#include "mqtt/delivery.h"

#include "support/allocated_bytes.h"
#include "support/failing_allocation.h"
#include "support/recorder.h"
#include "support/testing.h"

namespace {

using namespace ecu::tamu::com;
using namespace ecu::tamu::com::mqtt;

/// Allocates nothing itself.
struct Counter final : ISubscriptionObserver {
  void message(const std::string&, const Message&) override { ++calls; }
  int calls = 0;
};

class DeliveryTest : public testing::Test {
 protected:
  void post(const std::string& topic, const std::string& text) {
    delivery.post(topic, make_message(0, {text.begin(), text.end()}));
  }
  void deliver_all() {
    while (delivery.deliver_next()) {
    }
    delivery.report_losses();
  }

  // Drops `count` messages of "flood", and delivers the others.
  void overload(int count) {
    for (int i = 0; i < static_cast<int>(max_waiting_messages) + count; ++i) {
      post("flood", std::to_string(i));
    }
    deliver_all();
  }

  Delivery::Clock::time_point now;
  std::uint64_t lost = 0;
  Delivery delivery{[this](const Loss& loss) { lost += loss.count; }, [this] { return now; }};
  std::function<void()> on_message = [] {};
  std::shared_ptr<tests::Recorder> a =
      tests::make_recorder([this](const auto&, const auto&) { on_message(); });
  std::shared_ptr<tests::Recorder> b = tests::make_recorder();
};

TEST_F(DeliveryTest, AFloodDropsMessagesOfItsOwnTopicOnlyAndIsReportedOnceAndAtOnce) {
  delivery.add("flood", 0, a);
  delivery.add("calm", 0, a);
  post("calm", "first");
  on_message = [this, flooded = false]() mutable {
    if (!std::exchange(flooded, true)) {
      for (int i = 0; i < 1000; ++i) {
        post("flood", std::to_string(i));
      }
      post("calm", "last");
      delivery.report_losses();  // as another thread does while an observer is blocked
      EXPECT_EQ(lost, 744u);
    }
  };
  const auto log = tests::logged_lines([this] { deliver_all(); });
  const auto seen = a->seen();
  ASSERT_EQ(seen.size(), 2 + max_waiting_messages);
  EXPECT_THAT((std::vector{seen.front(), seen[1], seen.back()}),
              ElementsAre("calm=first", "flood=744", "calm=last"));
  EXPECT_THAT(log,
              ElementsAre("WARNING [tamu.com.mqtt] observer too slow: 744 messages dropped on topic flood"));
}

TEST_F(DeliveryTest, ABacklogMultipliesWhatMayWait) {
  Mailbox mailbox(a, 2);
  mailbox.add_topic("t");
  const auto message = std::make_shared<const QueuedMessage>(QueuedMessage{"t", {}, 1});
  int taken = 0;
  while (mailbox.put("t", message)) {
    ++taken;
  }
  EXPECT_EQ(taken, 512);
}

TEST_F(DeliveryTest, OverloadIsLoggedAtMostOnceInFiveSecondsAndCountedCompletely) {
  using std::chrono::seconds;
  const auto dropped = [](int count) {
    return "WARNING [tamu.com.mqtt] observer too slow: " + std::to_string(count) +
           " messages dropped on topic flood";
  };
  delivery.add("flood", 0, a);
  const auto log = tests::logged_lines([&] {
    overload(1);
    now += seconds(1);
    overload(2);
    EXPECT_EQ(delivery.losses_due() - now, seconds(4));
    now += seconds(3);
    overload(3);
    now += seconds(1);
    overload(4);
    overload(5);
    now += seconds(5);
    EXPECT_EQ(delivery.losses_due(), now);
    delivery.report_losses();
    EXPECT_EQ(delivery.losses_due(), Delivery::Clock::time_point::max());
    overload(6);
    now += seconds(60);
    overload(7);
    overload(8);
    for (int i = 0; i < 300; ++i) {
      post("flood", "not delivered any more");
    }
    delivery.close();
    post("flood", "ignored");
    EXPECT_FALSE(delivery.pending());
  });
  EXPECT_THAT(log, ElementsAre(dropped(1), dropped(9), dropped(5), dropped(13), dropped(52)));
  EXPECT_EQ(lost, 80u);
}

TEST_F(DeliveryTest, OnlyTheMessageThatExceedsAQueueIsDroppedAndTheOldestOfThoseThatDo) {
  delivery.add("x", 0, a);
  post("x", "before");
  post("x", std::string(max_waiting_bytes, 'l'));
  delivery.drop("x");
  delivery.drop("y");
  post("x", "after");
  const auto log = tests::logged_lines([this] { deliver_all(); });
  EXPECT_THAT(a->seen(), ElementsAre("x=before", "x=after"));
  EXPECT_THAT(log, ElementsAre("WARNING [tamu.com.mqtt] message too large: 2 messages dropped on topic x"));
  for (const char* text : {"1", "2", "3"}) {
    post("x", text + std::string(max_waiting_bytes / 2, 'l'));
  }
  post("x", "small");
  delivery.drop("x");
  now += LossLog::interval;
  EXPECT_THAT(tests::logged_lines([this] { deliver_all(); }),
              ElementsAre("WARNING [tamu.com.mqtt] observer too slow or message too large: 3 messages "
                          "dropped on topic x"));
  EXPECT_THAT(a->seen(), ElementsAre("x=before", "x=after", testing::StartsWith("x=3"), "x=small"));
  EXPECT_EQ(lost, 5u);
}

/// Allocates many small blocks and keeps the last one, like a parser that keeps one value of a message.
struct Parser final : ISubscriptionObserver {
  void message(const std::string&, const Message&) override {
    std::vector<std::unique_ptr<char[]>> blocks(200'000);
    for (auto& block : blocks) {
      block = std::make_unique<char[]>(24);
    }
    kept = std::move(blocks.back());
  }
  std::unique_ptr<char[]> kept;
};

TEST_F(DeliveryTest, TheMemoryThatALargeMessageTookGoesBackToTheSystem) {
  if (tests::allocated_bytes() == 0) {
    GTEST_SKIP() << "another allocator";
  }
  const auto parser = std::make_shared<Parser>();
  delivery.add("x", 0, parser);
  const std::size_t before = tests::resident_bytes();
  post("x", std::string(65536, 'l'));
  deliver_all();
  EXPECT_NE(parser->kept, nullptr);
  EXPECT_LT(tests::resident_bytes(), before + std::size_t{1024} * 1024);
}

TEST_F(DeliveryTest, AFailedAllocationCostsAtMostItsMessage) {
  const std::string topic(100, 't');
  const auto counter = std::make_shared<Counter>();
  delivery.add(topic, 0, counter);
  const auto with_failure = [](int nth, const auto& call) {
    const tests::FailingAllocation failing(nth);
    try {
      call();
    } catch (const std::bad_alloc&) {
    }
  };
  // A queue needs memory for every thirty-second message or so: the rounds bring each failure to each state.
  for (int round = 0; round < 1000; ++round) {
    Message large = make_message(0, Payload(max_waiting_bytes / 4));
    with_failure(round / 200, [&] { delivery.post(topic, std::move(large)); });
    with_failure(round % 2, [this] { delivery.deliver_next(); });
    deliver_all();
    for (const char* text : {"next", "last"}) {
      const int calls_before = counter->calls;
      post(topic, text);
      deliver_all();
      ASSERT_EQ(counter->calls, calls_before + 1) << round;
    }
  }
  const int calls_before = counter->calls;
  for (int i = 0; i < 3; ++i) {
    delivery.post(topic, make_message(0, Payload(max_waiting_bytes / 4)));
  }
  deliver_all();
  EXPECT_EQ(counter->calls, calls_before + 3);
}

TEST_F(DeliveryTest, AnUnsubscribedObserverReceivesNothingMore) {
  delivery.add("x", 0, a);
  delivery.add("x", 0, b);
  delivery.add("y", 0, a);
  post("x", "1");
  post("y", "2");
  EXPECT_FALSE(delivery.remove("x", a.get()));
  EXPECT_FALSE(delivery.remove("x", a.get()));
  EXPECT_TRUE(delivery.remove("x", b.get()));
  post("x", "3");
  deliver_all();
  EXPECT_THAT(a->seen(), ElementsAre("y=2"));
  EXPECT_THAT(b->seen(), IsEmpty());
}

}  // namespace
