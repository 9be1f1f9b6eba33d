#include "mqtt/leader_threads.h"

#include <system_error>

#include "support/process.h"
#include "support/testing.h"

namespace {

using namespace ecu::tamu::com::mqtt;

using tests::time_limit;

/// In each cycle the leader makes one call, which the test defines, until it returns false. Before each call
/// there are no more threads than the leader, one stand-in and those inside calls.
class LeaderThreadsTest : public testing::Test {
 public:
  ~LeaderThreadsTest() override { threads.join(); }

 protected:
  using Call = std::function<bool(int number)>;

  explicit LeaderThreadsTest(std::chrono::microseconds relief_delay = std::chrono::microseconds(100))
      : threads([this] { lead(); }, relief_delay,
                [this](const std::function<void()>& body) { return make_thread(body); }) {}

  /// Returns when a call has returned false and the threads have ended.
  void run(Call made) {
    call = std::move(made);
    threads.start();
    threads.join();
  }

  void lead() {
    for (;;) {
      EXPECT_TRUE(wait_for_alive(2, true));
      const int number = ++calls;  // before it can be relieved
      threads.begin_calls();
      change(in_calls, 1);
      const bool go_on = call(number);
      change(in_calls, -1);
      if (!go_on) {
        threads.finish();
      }
      if (!threads.end_calls()) {
        ++reliefs;
        return;
      }
      if (!go_on) {
        return;
      }
    }
  }

  std::thread make_thread(const std::function<void()>& body) {
    if (creations_to_fail > 0 && alive_now() > 0) {
      --creations_to_fail;
      throw std::bad_alloc();
    }
    change(alive, 1);
    return std::thread([this, body] {
      body();
      change(alive, -1);
    });
  }

  /// Waits inside a call until another thread has made the next one.
  bool relieved(int number, std::chrono::milliseconds limit = time_limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (calls == number && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::yield();
    }
    return calls > number;
  }
  /// Whether no more threads are left, once those that are about to end have ended.
  bool wait_for_alive(int count, bool outside_calls = false) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, time_limit,
                            [&] { return alive - (outside_calls ? in_calls : 0) <= count; });
  }
  int alive_now() {
    const std::lock_guard lock(mutex);
    return alive;
  }
  void change(int& number, int by) {
    const std::lock_guard lock(mutex);
    number += by;
    changed.notify_all();
  }

  Call call;
  std::atomic<int> calls = 0;
  std::atomic<int> reliefs = 0;
  int creations_to_fail = 0;
  std::mutex mutex;  // guards the rest but threads
  std::condition_variable changed;
  int alive = 0;
  int in_calls = 0;
  LeaderThreads threads;
};

class LateReliefTest : public LeaderThreadsTest {
 protected:
  LateReliefTest() : LeaderThreadsTest(std::chrono::hours(1)) {}
};

TEST_F(LateReliefTest, ShortCallsDoNotChangeTheLeader) {
  run([this](int number) {
    EXPECT_FALSE(relieved(number, std::chrono::milliseconds(5)));
    EXPECT_TRUE(threads.leading());
    return number < 5;
  });
  EXPECT_EQ(reliefs, 0);
}

TEST_F(LeaderThreadsTest, AMissingStandInIsRetriedAtEachCallAndDuringIt) {
  EXPECT_TRUE(threads.ensure_relief());
  creations_to_fail = 5;
  const auto log = tests::logged_lines([this] {
    run([this](int number) {
      const bool relievable =
          std::async(std::launch::async, [this] { return threads.ensure_relief(); }).get();
      EXPECT_EQ(relievable, number >= 3);
      return number <= 2 || (number == 3 && relieved(3));
    });
  });
  EXPECT_EQ(creations_to_fail, 0);
  EXPECT_GE(calls, 4);
  EXPECT_THAT(
      log, ElementsAre(
               "WARNING [tamu.com.mqtt] an observer that blocks will hold up the network: std::bad_alloc"));
}

TEST_F(LeaderThreadsTest, ALeaderWithLongCallsIsRelievedAndRepeatedReliefDoesNotAccumulateThreads) {
  constexpr int last_call = 300;
  run([this](int number) {
    const bool is_relieved = number < last_call && relieved(number);
    EXPECT_TRUE(!is_relieved || !threads.leading());
    return is_relieved;
  });
  EXPECT_GE(calls, last_call);
}

TEST_F(LeaderThreadsTest, ThreadsOfCallsThatBlockedAtOnceEndAfterwards) {
  constexpr int blocked = 10;
  std::promise<void> release, all_blocked;
  std::atomic<bool> go_on = true;
  call = [&, released = release.get_future().share()](int number) {
    if (number <= blocked) {
      released.wait();
    } else if (number == blocked + 1) {
      all_blocked.set_value();
    }
    return go_on.load();
  };
  threads.start();
  all_blocked.get_future().wait();
  EXPECT_GE(alive_now(), blocked + 1);
  release.set_value();
  EXPECT_TRUE(wait_for_alive(2));
  go_on = false;
  threads.join();  // before the end of what the calls refer to
}

TEST_F(LeaderThreadsTest, StartThrowsWhenTheFirstThreadCannotBeCreated) {
  LeaderThreads none(
      [] {}, std::chrono::milliseconds(2),
      [](const std::function<void()>&) -> std::thread {
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
      });
  EXPECT_THROW(none.start(), std::system_error);
}

}  // namespace
