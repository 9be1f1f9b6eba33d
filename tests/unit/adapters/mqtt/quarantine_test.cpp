#include "mqtt/quarantine.h"

#include "support/testing.h"

namespace {

using namespace ecu::tamu::com;
using namespace ecu::tamu::com::mqtt;

using Handling = Quarantine::Handling;

PublicationPtr publication(const std::string& topic, const std::string& text) {
  return std::make_shared<const Publication>(Publication{topic, make_message(0, {text.begin(), text.end()})});
}

class QuarantineTest : public testing::Test {
 protected:
  explicit QuarantineTest(std::chrono::seconds retest_after = 0s) : quarantine(retest_after) {}

  Handling handle(const std::string& topic, const std::string& text) {
    return quarantine.handle(publication(topic, text), now);
  }
  bool lose(ConnectionFailure failure = ConnectionFailure::closed_by_peer) {
    return quarantine.connection_lost(failure, now);
  }
  /// Whether the publication is tested now; the broker has handled everything before it.
  bool is_under_test(Handling handling) {
    if (handling == Handling::fence_and_test) {
      quarantine.fence_answered(now);
    }
    const bool tested = handling == Handling::test || handling == Handling::fence_and_test;
    EXPECT_EQ(quarantine.testing(), tested);
    return tested;
  }
  /// Loses the connection right after this publication; true when that sets it aside.
  bool lose_by(const std::string& topic, const std::string& text) {
    const Handling handling = handle(topic, text);
    EXPECT_NE(handling, Handling::withhold);
    (void)is_under_test(handling);
    return lose();
  }
  void set_aside(const std::string& topic, const std::string& text) {
    for (int losses = 0; !lose_by(topic, text); ++losses) {
      ASSERT_LT(losses, 4);
    }
  }
  /// How the publication was handled; a test passes.
  std::string handled(const std::string& topic, const std::string& text) {
    const Handling handling = handle(topic, text);
    if (!is_under_test(handling)) {
      return handling == Handling::send ? "sent" : "withheld";
    }
    quarantine.fence_answered(now);
    EXPECT_FALSE(quarantine.testing());
    return "passed";
  }

  Quarantine quarantine;
  Quarantine::Clock::time_point now = Quarantine::Clock::time_point(1h);
};

TEST_F(QuarantineTest, AfterTwoLossesTheFaultyTopicIsSetAsideAndOthersAreSent) {
  const auto log = tests::logged_lines([this] {
    EXPECT_FALSE(lose_by("bad", "12345"));
    EXPECT_FALSE(lose_by("bad", "12345"));
    EXPECT_EQ(handled("good", "1"), "passed");
    EXPECT_FALSE(lose_by("bad", "12345"));
    EXPECT_EQ(handled("good", "1"), "sent");
    EXPECT_TRUE(lose_by("bad", "12345"));
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(handled("bad", "12345"), "withheld");
    }
    EXPECT_EQ(handled("good", "2"), "sent");
    EXPECT_EQ(handled("bad", "123"), "passed");
    EXPECT_EQ(handled("bad", "12345"), "passed");
  });
  EXPECT_THAT(log,
              ElementsAre("ERROR [tamu.com.mqtt] broker ends the connection for the message on topic bad "
                          "(5 bytes): set aside until its value changes"));
}

TEST_F(QuarantineTest, OnAConnectionThatIsCutRegularlyEveryTopicPassesAndNoneIsSetAside) {
  EXPECT_FALSE(lose_by("0", "1"));
  EXPECT_FALSE(lose_by("0", "1"));
  for (int passed = 0; passed < 9; passed += 3) {  // three tests a connection, lost in the fourth
    for (int topic = 0; topic < passed + 3; ++topic) {
      EXPECT_EQ(handled(std::to_string(topic), "1"), topic < passed ? "sent" : "passed");
    }
    EXPECT_FALSE(lose_by(std::to_string(passed + 3), "1"));
  }
}

TEST_F(QuarantineTest, ALossBeforeTheTestIsThatOfAMessageThatWasNotTested) {
  EXPECT_FALSE(lose_by("other", "1"));
  EXPECT_FALSE(lose_by("other", "1"));
  EXPECT_EQ(handled("c", "1"), "passed");
  EXPECT_EQ(handled("a", "1"), "passed");
  EXPECT_FALSE(lose_by("b", "1"));
  EXPECT_EQ(handled("a", "1"), "sent");  // by now the broker refuses it
  EXPECT_EQ(handle("b", "1"), Handling::fence_and_test);
  EXPECT_FALSE(lose());
  EXPECT_EQ(handled("c", "1"), "passed");  // the broker may refuse it, too
  EXPECT_FALSE(lose_by("a", "1"));
  EXPECT_TRUE(lose_by("a", "1"));
  EXPECT_EQ(handled("b", "1"), "passed");
}

TEST_F(QuarantineTest, ASmallerMessageNeitherClearsTheFaultyTopicNorIsWithheld) {
  const std::string large(60'000, 'x');
  int losses = 0;
  const auto log = tests::logged_lines([&] {
    for (const bool found : {false, false, false, true, false, true, false, true}) {
      now += 1s;  // the longest pause meanwhile
      EXPECT_EQ(handled("answers", "small"), losses == 2 ? "passed" : "sent");
      EXPECT_EQ(lose_by("answers", large + std::to_string(losses++)), found);
    }
    EXPECT_EQ(handled("answers", "tiny"), "sent");
    EXPECT_EQ(handled("answers", "larger"), "passed");
    EXPECT_EQ(handled("answers", large + "8"), "withheld");
  });
  EXPECT_THAT(log, testing::SizeIs(3));
  EXPECT_EQ(quarantine.due(), now + 2s);
}

TEST_F(QuarantineTest, AMessageRefusedForItsContentsIsFoundAlthoughALargerOneHasPassed) {
  EXPECT_FALSE(lose_by("other", "1"));
  EXPECT_FALSE(lose_by("other", "1"));
  for (const bool found : {false, false, true}) {
    EXPECT_EQ(handled("a", "larger"), "passed");
    EXPECT_EQ(lose_by("a", "bad"), found);
  }
  EXPECT_EQ(handled("a", "bad"), "withheld");
  EXPECT_EQ(handled("a", "larger"), "passed");
}

TEST_F(QuarantineTest, ALossDoesNotWithholdASmallMessageUntilALargeOneIsRetried) {
  set_aside("a", "large");
  set_aside("a", "as large");
  EXPECT_EQ(handled("a", "1"), "passed");
  EXPECT_EQ(handled("a", "2"), "sent");
  EXPECT_FALSE(lose());
  EXPECT_EQ(handled("a", "3"), "passed");
}

TEST_F(QuarantineTest, TheSearchEndsAfterManyPublicationsThatPass) {
  EXPECT_FALSE(lose_by("0", ""));
  EXPECT_FALSE(lose_by("0", ""));
  for (std::size_t topic = 0; topic <= Quarantine::max_passed; ++topic) {
    EXPECT_EQ(handled(std::to_string(topic), ""), "passed");
  }
  EXPECT_EQ(handled("another", ""), "sent");
  EXPECT_FALSE(lose());
  EXPECT_EQ(handled("another", ""), "sent");
}

TEST_F(QuarantineTest, SeveralFaultyTopicsAreFoundOneAfterAnother) {
  set_aside("bad", "1");
  EXPECT_FALSE(lose_by("worse", "1"));
  EXPECT_EQ(handled("bad", "1"), "withheld");
  EXPECT_TRUE(lose_by("worse", "1"));
  EXPECT_EQ(handled("good", "1"), "passed");
  EXPECT_TRUE(lose_by("third", "1"));  // by now one loss is enough
  now += Quarantine::right_after;
  EXPECT_TRUE(lose_by("fourth", "1"));
  quarantine.attempt_failed();
  EXPECT_FALSE(lose_by("fifth", "1"));
  EXPECT_TRUE(lose_by("fifth", "1"));
  now += Quarantine::right_after + 1ms;
  EXPECT_FALSE(lose_by("sixth", "1"));
}

TEST_F(QuarantineTest, TheSearchEndsAfterATimeWithoutLossAndNeedsTwoLossesInThatTime) {
  EXPECT_FALSE(lose_by("a", "1"));
  EXPECT_FALSE(lose_by("a", "1"));
  now += Quarantine::search_time;
  EXPECT_EQ(handled("b", "1"), "passed");
  now += 1ms;
  EXPECT_EQ(handled("b", "22"), "sent");
  EXPECT_FALSE(lose_by("b", "1"));
  now += Quarantine::search_time + 1ms;
  EXPECT_FALSE(lose_by("b", "1"));
  EXPECT_EQ(handled("b", "22"), "sent");
}

TEST_F(QuarantineTest, LossesWithAnotherCauseSetNothingAside) {
  for (int i = 0; i < 10; ++i) {  // the broker does not answer
    (void)handle("a", "1");
    EXPECT_FALSE(lose(ConnectionFailure::no_answer));
  }
  for (int i = 0; i < 10; ++i) {  // long after the last publication
    (void)handle("a", "1");
    now += Quarantine::right_after + 1s;
    EXPECT_FALSE(lose());
  }
  const auto broker_goes_away = [this] {
    for (int i = 0; i < 10; ++i) {
      EXPECT_FALSE(lose_by("a", "1"));
      quarantine.attempt_failed();
    }
  };
  broker_goes_away();
  EXPECT_EQ(handled("a", "1"), "sent");
  EXPECT_FALSE(lose_by("a", "1"));
  EXPECT_FALSE(lose_by("a", "1"));
  broker_goes_away();  // during tests
  EXPECT_EQ(handled("a", "1"), "passed");
}

TEST_F(QuarantineTest, ALossBeforeTheFirstPublicationOfAConnectionSetsNothingAside) {
  EXPECT_FALSE(quarantine.connection_made(now));
  EXPECT_FALSE(lose_by("a", "1"));
  EXPECT_FALSE(lose_by("a", "1"));
  for (int i = 0; i < 10; ++i) {  // a subscription, say, that the broker does not want
    EXPECT_TRUE(quarantine.connection_made(now));
    EXPECT_TRUE(quarantine.testing());
    EXPECT_FALSE(lose());
  }
  EXPECT_TRUE(quarantine.connection_made(now));
  quarantine.fence_answered(now);
  EXPECT_FALSE(quarantine.testing());
  EXPECT_FALSE(lose_by("a", "1"));
  EXPECT_TRUE(lose_by("a", "1"));
}

TEST_F(QuarantineTest, TheSearchEndsAlsoIfNoConnectionAnswersItsFirstFence) {
  EXPECT_FALSE(lose_by("a", "1"));
  EXPECT_FALSE(lose_by("a", "1"));
  for (const bool searches : {true, true, false}) {
    EXPECT_EQ(quarantine.connection_made(now), searches);
    EXPECT_EQ(quarantine.testing(), searches);
    EXPECT_FALSE(lose());
    now += Quarantine::search_time / 2 + 1ms;
  }
  EXPECT_EQ(handled("a", "1"), "sent");
}

TEST_F(QuarantineTest, ATopicThatKeepsFailingIsRetriedAfterDoublingPauses) {
  set_aside("bad", "1");
  set_aside("bad", "2");  // the first change is tried at once
  for (const auto pause : {1s, 2s, 4s, 8s}) {
    EXPECT_EQ(handled("bad", "other"), "withheld");
    EXPECT_EQ(quarantine.due(), now + pause);
    now += pause - 1ms;
    EXPECT_EQ(quarantine.take_due(now), nullptr);
    now += 1ms;
    const PublicationPtr due = quarantine.take_due(now);
    ASSERT_NE(due, nullptr);
    EXPECT_TRUE(is_under_test(quarantine.handle(due, now)));
    EXPECT_FALSE(lose());
    EXPECT_TRUE(lose_by("bad", std::to_string(pause.count())));
  }
  now += 16s;
  EXPECT_EQ(handled("bad", "good"), "passed");
  EXPECT_EQ(quarantine.due(), Quarantine::Clock::time_point::max());
  set_aside("bad", "1");  // a single pass does not end the pauses
  EXPECT_EQ(handled("bad", "2"), "withheld");
  now += 32s + Quarantine::longest_pause;
  EXPECT_EQ(handled("bad", "good"), "passed");
  set_aside("bad", "1");
  EXPECT_EQ(handled("bad", "2"), "passed");
}

class RetestTest : public QuarantineTest {
 protected:
  RetestTest() : QuarantineTest(10s) {
    for (const std::string topic : {"a", "b", "c"}) {
      set_aside(topic, "1");
    }
  }
  void expect_all_withheld() {
    for (const std::string topic : {"a", "b", "c"}) {
      EXPECT_EQ(handle(topic, "1"), Handling::withhold);
    }
  }
  /// The topic that is tested again now; the test is under way.
  std::string retested() {
    const PublicationPtr due = quarantine.take_due(now);
    return due && is_under_test(quarantine.handle(due, now)) ? due->topic : "none";
  }
};

TEST_F(RetestTest, UnchangedMessagesTakeTurnsAfterPausesThatDouble) {
  std::string order;
  for (const auto pause : {10s, 20s, 40s, 80s}) {
    expect_all_withheld();
    EXPECT_EQ(quarantine.due(), now + pause);
    now += pause;
    order += retested();
    EXPECT_TRUE(lose());
  }
  EXPECT_EQ(order, "abca");
  EXPECT_EQ(handled("b", "2"), "passed");
}

TEST_F(RetestTest, AllAreTestedOnceTheBrokerIsBackOrAcceptsOne) {
  quarantine.attempt_failed();
  expect_all_withheld();
  const auto log = tests::logged_lines([this] {
    EXPECT_EQ(retested(), "a");
    quarantine.fence_answered(now);
  });
  EXPECT_THAT(log, ElementsAre("NOTICE [tamu.com.mqtt] broker accepts the message on topic a that was set "
                               "aside"));
  EXPECT_EQ(handled("a", "1"), "sent");
  EXPECT_EQ(retested(), "b");
  EXPECT_TRUE(lose());
  EXPECT_EQ(handle("b", "1"), Handling::withhold);
  EXPECT_EQ(handle("c", "1"), Handling::withhold);
  EXPECT_EQ(quarantine.due(), now + 20s);
  now += 20s;
  EXPECT_EQ(retested(), "c");
  quarantine.fence_answered(now);
  EXPECT_EQ(retested(), "b");
  EXPECT_TRUE(lose());
  EXPECT_EQ(handle("b", "1"), Handling::withhold);
  EXPECT_EQ(quarantine.due(), now + 20s);
}

}  // namespace
