#include <ecu/quil/vin_requester_thread.h>
#include <ecu/quil/vin_variables.h>

#include "support/fake_client.h"
#include "support/rt_messages.h"
#include "support/testing.h"

namespace {

using namespace ecu::quil;
using ecu::tamu::com::PublishResult;
using Clock = std::chrono::steady_clock;

constexpr auto time_limit = 20s;
constexpr const char* request_topic = "rt/j1939can/tx/rqst_fb_ee";

/// Lets a test wait for requests that are published, or refused.
struct Bus final : tests::FakeClient, ecu::tamu::diag::PgnRequestClient {
  using Error = ecu::tamu::diag::Error;
  using Token = ecu::tamu::diag::PgnRequestToken;

  PublishResult publish(const std::string& topic, Message message) override {
    count(topic == request_topic ? std::optional(std::move(message)) : std::nullopt);
    return result;
  }
  ecu::tamu::Result<Token, Error> request_token(const std::string& topic, std::uint64_t seconds) override {
    if (!refuse && topic == request_topic && seconds == 60) {
      return Token{};
    }
    count(std::nullopt);
    return Error::too_early;
  }
  std::string error_str(const Error& /*error*/) const override { return "not now"; }

  void count(std::optional<Message> request) {
    last_request = std::move(request);
    ++attempts;
  }

  // The requester's thread changes these before it looks at the clock again.
  std::optional<Message> last_request;  // none when the last attempt was refused
  int attempts = 0;
  bool refuse = false;
};

/// The state of the requester's thread in /proc: 'S' while it sleeps, 0 when there is no such thread.
char thread_state() {
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string stat;
    std::getline(std::ifstream(task.path() / "stat"), stat);
    if (const auto name = stat.find("(vin-requester) "); name != std::string::npos) {
      return stat[name + 16];
    }
  }
  return 0;
}

void await_thread_state(char state) {
  for (const auto deadline = Clock::now() + time_limit; thread_state() != state; std::this_thread::yield()) {
    ASSERT_LT(Clock::now(), deadline);
  }
}

/// The period of an hour passes on the test's clock only.
class VinRequesterTest : public testing::Test {
 protected:
  void start() {
    requester = std::make_unique<VINRequesterThread>(bus, mutex, wakeup, running, bus, 3600, [this] {
      ++looks;
      looked.notify_all();
      return now;
    });
    requester->init();
  }
  /// Lets the time pass and notifies the requester; returns when it waits again. The requester looks at the
  /// clock at the begin and at the end of each wait, with the mutex held.
  void notify_after(std::chrono::seconds time) {
    std::unique_lock lock(*mutex);
    ASSERT_TRUE(looked.wait_for(lock, time_limit, [this] { return looks % 2 == 1; }));
    now += time;
    wakeup->notify_all();
    ASSERT_TRUE(looked.wait_for(lock, time_limit, [this, next = looks + 2] { return looks >= next; }));
  }
  void kl15(std::string_view data, std::uint32_t status = 3) {
    bus->last_observer->message("rt/io/kl15", tests::Group().bytes("kl15", data).status(status).message());
  }

  std::shared_ptr<Bus> bus = std::make_shared<Bus>();
  std::shared_ptr<std::mutex> mutex = std::make_shared<std::mutex>();
  std::shared_ptr<std::condition_variable> wakeup = std::make_shared<std::condition_variable>();
  std::shared_ptr<std::atomic_bool> running = std::make_shared<std::atomic_bool>(false);
  std::condition_variable looked;
  Clock::time_point now = Clock::now();  // guarded by the mutex, like looks
  int looks = 0;
  std::unique_ptr<VINRequesterThread> requester;
};

TEST_F(VinRequesterTest, RequestsTheVinOncePerPeriodWhileTheIgnitionIsOn) {
  start();
  EXPECT_TRUE(*running);
  EXPECT_THAT(bus->subscribed, ElementsAre("rt/io/kl15"));
  notify_after(1h);
  EXPECT_EQ(bus->attempts, 0);
  kl15("\x02");
  notify_after(1h);
  notify_after(2h);
  EXPECT_EQ(bus->attempts, 2);
  notify_after(59min);
  notify_after(59min);  // restarts the period
  EXPECT_EQ(bus->attempts, 2);
  notify_after(1h);
  EXPECT_EQ(bus->attempts, 3);
  kl15({"\0", 1});
  notify_after(1h);
  EXPECT_EQ(bus->attempts, 3);
  EXPECT_EQ(tests::body_bytes(*bus->last_request),
            "\x0a\x22\x0a\x18parametergroupnumberrqst\x12\x04\xec\xfe\0\0\x20\x03"s);
  EXPECT_FALSE(bus->last_request->retained);
  requester.reset();
  EXPECT_THAT(bus->unsubscribed, ElementsAre("rt/io/kl15"));
}

TEST_F(VinRequesterTest, ABadIgnitionMessageIsReportedAndChangesNothing) {
  start();
  kl15("\x01");
  const auto log = tests::logged_lines([this] {
    kl15({"\0", 1}, 2);
    kl15("");
    bus->last_observer->message("rt/io/kl15", tests::Group().bytes("other", "").message());
    bus->last_observer->message("rt/io/kl15", tests::raw_message("short"));
  });
  EXPECT_THAT(log, testing::IsSupersetOf({"ERROR ERROR signal not ok", "ERROR ERROR signal not ok",
                                          "ERROR ERROR no signal: kl15 on topic: rt/io/kl15",
                                          "ERROR ERROR message not okay on topic: rt/io/kl15"}));
  notify_after(1h);
  EXPECT_EQ(bus->attempts, 1);
}

TEST_F(VinRequesterTest, ARefusedTokenIsReportedAndRequestedAgain) {
  bus->refuse = true;
  const auto log = tests::logged_lines([this] {
    start();
    kl15("\x01");
    notify_after(1h);
    notify_after(1h);
    requester->stop();
  });
  const std::string refused = "ERROR Unable to acquire PGN request token: not now",
                    failed = "ERROR Error request VIN on topic: rt/j1939can/tx/rqst_fb_ee";
  EXPECT_THAT(log, ElementsAre("DEBUG Start thread wait 3600 seconds to Receive VIN", refused, failed,
                               refused, failed, "NOTICE Stop vin thread"));
  EXPECT_FALSE(bus->last_request);
}

// A notification of the requester needs the mutex, so a call that ends while the test holds it has not
// notified.
TEST_F(VinRequesterTest, OnlyAnAcceptedVinRestartsThePeriod) {
  start();
  VinVariableJ1939Ecu variable("00", mutex, wakeup, running, 2);
  std::vector<std::future<void>> calls;  // end at the latest without the lock
  std::unique_lock lock(*mutex);
  const auto extract = [&](const char* data, double count) {
    const auto message = tests::Group().bytes("data", data).value("nof_bytes", count).message();
    return [&variable, message] { EXPECT_FALSE(variable.extract(message)); };
  };
  const auto notifies = [&](const auto& call) {
    calls.push_back(std::async(std::launch::async, call));
    return calls.back().wait_for(time_limit / 4) != std::future_status::ready;
  };
  ASSERT_FALSE(notifies([this] { kl15("\x01"); }));
  ASSERT_FALSE(notifies(extract("*", 1)));
  ASSERT_FALSE(notifies(extract("A", 0)));
  calls.push_back(std::async(std::launch::async, extract("A", 1)));
  EXPECT_EQ(wakeup->wait_for(lock, time_limit), std::cv_status::no_timeout);
}

TEST_F(VinRequesterTest, EndsByItselfOnceTheVinIsConfirmed) {
  start();
  await_thread_state('S');
  VinVariableJ1939Ecu variable("00", mutex, wakeup, running, 2);
  const auto message = tests::Group().bytes("data", "A").value("nof_bytes", 1).message();
  EXPECT_FALSE(variable.extract(message));
  EXPECT_TRUE(variable.extract(message));
  (std::lock_guard(*mutex), wakeup->notify_all());  // as the end of the period does
  await_thread_state(0);
  const auto log = tests::logged_lines([this] {
    requester->stop();
    requester->stop();
  });
  EXPECT_THAT(log, ElementsAre("NOTICE Stop vin thread"));
}

TEST_F(VinRequesterTest, StopsAtOnceAtAnyMoment) {
  for (int i = 0; i < 1000; ++i) {
    start();
    (std::lock_guard(*mutex), wakeup->notify_all());
    const auto instant = Clock::now() + i * 60ns;
    while (Clock::now() < instant) {
    }
    requester->stop();
    EXPECT_FALSE(*running);
  }
}

TEST_F(VinRequesterTest, DoesNotBeginAPeriodOnceTheFlagIsCleared) {
  std::unique_lock lock(*mutex);
  start();
  await_thread_state('S');  // at the mutex
  *running = false;
  lock.unlock();
  await_thread_state(0);
}

TEST_F(VinRequesterTest, ASecondInitEndsTheProcess) {
  EXPECT_DEATH(
      {
        start();
        requester->init();
      },
      "terminate called");
}

}  // namespace
