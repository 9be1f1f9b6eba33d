#include "mqtt/outbox.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "support/captured_log.h"

namespace {

using namespace ecu::tamu::com;
using namespace ecu::tamu::com::mqtt;
using testing::ElementsAre;

class OutboxTest : public testing::Test {
 protected:
  PublishResult push(const std::string& topic, const std::string& text, bool retained = true) {
    Message message = make_message(0, {text.begin(), text.end()});
    message.retained = retained;
    return outbox.push(topic, std::move(message));
  }
  std::vector<std::string> pop_all() {
    std::vector<std::string> popped;
    while (outbox.front() != nullptr) {
      const Publication next = outbox.pop();
      popped.push_back(next.topic + ":" +
                       std::string(next.message.payload.begin(), next.message.payload.end()));
    }
    return popped;
  }

  Outbox outbox;
};

TEST_F(OutboxTest, EveryConnectionPublishesTheLatestRetainedMessagesInTheOrderOfTheFirst) {
  EXPECT_EQ(push("b", "1"), PublishResult::success);
  EXPECT_EQ(push("a", "2"), PublishResult::success);
  EXPECT_EQ(push("b", "3"), PublishResult::success);
  EXPECT_THAT(pop_all(), ElementsAre());
  outbox.connection_up();
  EXPECT_EQ(push("a", "4"), PublishResult::success);
  EXPECT_EQ(push("c", "5", false), PublishResult::success);
  EXPECT_THAT(pop_all(), ElementsAre("b:3", "a:2", "a:4", "c:5"));
  push("c", "6", false);
  outbox.connection_lost();
  outbox.connection_up();
  EXPECT_THAT(pop_all(), ElementsAre("b:3", "a:4"));
}

TEST_F(OutboxTest, AnOutageCostsUnretainedMessagesAndOneLine) {
  for (int outage = 0; outage < 2; ++outage) {
    const auto log = tests::logged_lines([this] {
      EXPECT_EQ(push("a", "1", false), PublishResult::not_connected);
      EXPECT_EQ(push("b", "2", false), PublishResult::not_connected);
    });
    EXPECT_THAT(
        log,
        ElementsAre("WARNING [tamu.com.mqtt] no connection: message on topic a dropped, more may follow"));
    outbox.connection_up();
    outbox.connection_lost();
  }
}

TEST_F(OutboxTest, AgainstASlowBrokerItStaysBoundedAndKeepsTheNewestRetained) {
  outbox.connection_up();
  push("r", "oldest");
  push("r", "old");
  const auto log = tests::logged_lines([this] {
    for (std::size_t i = 0; i < 2 * max_queued_publications; ++i) {
      (void)push("u", "x", false);
    }
  });
  EXPECT_EQ(log.size(), 1u);
  EXPECT_EQ(push("u", "x", false), PublishResult::overload);
  EXPECT_EQ(push("r", "new"), PublishResult::success);
  EXPECT_EQ(push("s", "first"), PublishResult::success);
  const auto popped = pop_all();
  EXPECT_EQ(popped.size(), max_queued_publications + 1);
  EXPECT_EQ(popped[1], "r:new");
  EXPECT_EQ(popped.back(), "s:first");
  EXPECT_EQ(push("u", "x", false), PublishResult::success);
}

TEST_F(OutboxTest, IsBoundedInBytes) {
  outbox.connection_up();
  const std::string large(max_queued_bytes, 'l');
  EXPECT_EQ(push("u", large, false), PublishResult::success);
  EXPECT_EQ(push("u", "x", false), PublishResult::overload);
  EXPECT_EQ(pop_all().size(), 1u);
  EXPECT_EQ(push("u", "x", false), PublishResult::success);
}

}  // namespace
