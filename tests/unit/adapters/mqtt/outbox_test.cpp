#include "mqtt/outbox.h"

#include "support/rt_messages.h"
#include "support/testing.h"

namespace {

using namespace ecu::tamu::com;
using namespace ecu::tamu::com::mqtt;

class OutboxTest : public testing::Test {
 protected:
  PublishResult push(const std::string& topic, const std::string& text, bool retained = true,
                     bool acknowledged = false) {
    return outbox.push(topic, tests::raw_message(text, acknowledged, retained));
  }
  std::vector<std::string> pop_all(bool takes_acknowledged = true) {
    std::vector<std::string> popped;
    while (const PublicationPtr next = outbox.pop(takes_acknowledged)) {
      const Payload& payload = next->message.payload;
      popped.push_back(next->topic + ":" + std::string(payload.begin(), payload.end()));
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

TEST_F(OutboxTest, AForgottenMessageIsNotPublishedOnTheNextConnectionUnlessItWasReplaced) {
  outbox.connection_up();
  for (const char* topic : {"a", "b", "c"}) {
    push(topic, "");
  }
  std::vector<PublicationPtr> sent;
  outbox.pop_batch(2, 2, sent);
  push("b", "new");
  push("c", "new");
  outbox.forget(sent);
  push("c", "newer");
  outbox.connection_lost();
  outbox.connection_up();
  EXPECT_THAT(pop_all(), ElementsAre("b:new", "c:newer"));
  push("a", "again");
  EXPECT_THAT(pop_all(), ElementsAre("a:again"));
}

TEST_F(OutboxTest, AnOutageDropsUnretainedMessagesWithOneLogLine) {
  for (int outage = 0; outage < 2; ++outage) {
    const auto log = tests::logged_lines([this] {
      EXPECT_EQ(push("a", "1", false), PublishResult::not_connected);
      outbox.connection_lost();  // an attempt has failed
      EXPECT_EQ(push("b", "2", false), PublishResult::not_connected);
    });
    EXPECT_THAT(
        log,
        ElementsAre("WARNING [tamu.com.mqtt] no connection: message on topic a dropped, more may follow"));
    outbox.connection_up();
    outbox.connection_lost();
  }
}

TEST_F(OutboxTest, WithASlowBrokerItStaysBoundedInMessagesAndBytesAndKeepsTheLatestRetainedOnes) {
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
  EXPECT_EQ(push("u", std::string(max_queued_bytes, 'l'), false), PublishResult::success);
  EXPECT_EQ(push("u", "x", false), PublishResult::overload);
  EXPECT_EQ(pop_all().size(), 1u);
  EXPECT_EQ(push("u", "x", false), PublishResult::success);
}

TEST_F(OutboxTest, OnlyOneMessageBeyondTheLimitIsHeldUntilItIsWritten) {
  const std::string small(max_queued_bytes / 2, 's'), large(max_queued_bytes, 'l');
  outbox.connection_up();
  for (const bool written : {true, false}) {
    std::vector<PublicationPtr> sent;
    EXPECT_EQ(push("u", small, false), PublishResult::success);
    EXPECT_EQ(push("u", large, false), PublishResult::success);
    EXPECT_EQ(push("u", large, false), PublishResult::overload);
    EXPECT_EQ(pop_all().size(), 2u);
    EXPECT_EQ(push("u", large, false), PublishResult::success);
    outbox.pop_batch(1, 0, sent);
    EXPECT_EQ(push("u", large, false), PublishResult::overload);
    EXPECT_EQ(push("u", small, false), PublishResult::success);
    EXPECT_EQ(pop_all().size(), 1u);
    if (written) {
      outbox.batches_written();
    } else {
      outbox.connection_lost();
      outbox.connection_up();
    }
  }
  EXPECT_EQ(push("u", large, false), PublishResult::success);
}

TEST_F(OutboxTest, PublicationsThatAwaitAcknowledgementsLetOtherTopicsPass) {
  outbox.connection_up();
  push("a", "acknowledged 1", false, true);
  push("b", "1", false);
  push("a", "2", false);
  push("c", "3", false);
  push("a", "acknowledged 4", true, true);
  EXPECT_THAT(pop_all(false), ElementsAre("b:1", "c:3"));
  EXPECT_FALSE(outbox.has_next(false));
  push("b", "5", false);
  push("d", "acknowledged 6", false, true);
  EXPECT_EQ(outbox.pop(true)->message.payload.back(), '1');
  EXPECT_THAT(pop_all(false), ElementsAre("a:2", "b:5"));
  EXPECT_THAT(pop_all(true), ElementsAre("a:acknowledged 4", "d:acknowledged 6"));
  EXPECT_EQ(outbox.size(), 0u);
  push("a", "7", false);
  EXPECT_THAT(pop_all(false), ElementsAre("a:7"));
}

TEST_F(OutboxTest, StalledPublicationsCountAndRetainedOnesAmongThemAreReplaced) {
  outbox.connection_up();
  push("r", "old", true, true);
  for (std::size_t i = 1; i < max_queued_publications; ++i) {
    push("u", "x", false, true);
  }
  EXPECT_FALSE(outbox.has_next(false));
  EXPECT_EQ(push("u", "x", false), PublishResult::overload);
  EXPECT_EQ(push("v", "x", false, true), PublishResult::overload);
  EXPECT_EQ(push("r", "new", true, true), PublishResult::success);
  EXPECT_EQ(push("v", "x", false), PublishResult::success);
  EXPECT_THAT(pop_all(false), ElementsAre("v:x"));
  EXPECT_EQ(outbox.pop(true)->message.payload, (Payload{'n', 'e', 'w'}));
  outbox.connection_lost();
  outbox.connection_up();
  EXPECT_THAT(pop_all(), ElementsAre("r:new"));
}

TEST_F(OutboxTest, ARetainedMessageIsHeldOnceAndFreesItsExcessCapacity) {
  outbox.connection_up();
  Message message = tests::raw_message("x", false, true);
  message.payload.reserve(std::size_t{1} << 20U);
  (void)outbox.push("a", std::move(message));
  const PublicationPtr sent = outbox.pop(true);
  EXPECT_LT(sent->message.payload.capacity(), 100u);
  outbox.connection_up();
  EXPECT_EQ(outbox.pop(true), sent);
  const std::weak_ptr<const Publication> old = sent;
  push("a", "2");
  EXPECT_EQ(old.use_count(), 1);
}

}  // namespace
