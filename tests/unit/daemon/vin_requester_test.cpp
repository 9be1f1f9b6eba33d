#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <ecu/quil/vin_requester_thread.h>
#include <ecu/quil/vin_variables.h>

#include "support/captured_log.h"
#include "support/fake_client.h"
#include "support/rt_messages.h"

namespace {

using namespace ecu::quil;
using namespace std::chrono_literals;
using namespace std::string_literals;
using ecu::tamu::com::PublishResult;
using testing::ElementsAre;
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
    const std::lock_guard lock(mutex);
    last_request = std::move(request);
    last_time = Clock::now();
    ++attempts;
    changed.notify_all();
  }
  Clock::time_point wait_for_attempts(int more) {
    std::unique_lock lock(mutex);
    const int wanted = attempts + more;
    EXPECT_TRUE(changed.wait_for(lock, time_limit, [&] { return attempts >= wanted; }));
    return last_time;
  }

  std::mutex mutex;  // guards all below
  std::condition_variable changed;
  std::optional<Message> last_request;  // none when the last attempt was refused
  Clock::time_point last_time;
  int attempts = 0;
  std::atomic_bool refuse = false;
};

bool requester_thread_exists() {
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(task.path() / "comm") >> std::ws, name);
    if (name == "vin-requester") {
      return true;
    }
  }
  return false;
}

class VinRequesterTest : public testing::Test {
 protected:
  std::unique_ptr<VINRequesterThread> make(std::chrono::milliseconds period) {
    return std::make_unique<VINRequesterThread>(bus, mutex, wakeup, running, bus, 1, period);
  }
  void start(std::chrono::milliseconds period) {
    requester = make(period);
    requester->init();
  }
  void kl15(std::string_view data, std::uint32_t status = 3) {
    bus->last_observer->message("rt/io/kl15", tests::Group().bytes("kl15", data).status(status).message());
  }
  void notify() {
    const std::lock_guard lock(*mutex);
    wakeup->notify_all();
  }

  std::shared_ptr<Bus> bus = std::make_shared<Bus>();
  std::shared_ptr<std::mutex> mutex = std::make_shared<std::mutex>();
  std::shared_ptr<std::condition_variable> wakeup = std::make_shared<std::condition_variable>();
  std::shared_ptr<std::atomic_bool> running = std::make_shared<std::atomic_bool>(false);
  std::unique_ptr<VINRequesterThread> requester;
};

TEST_F(VinRequesterTest, RequestsTheVinWhileTheIgnitionIsOn) {
  start(1ms);
  EXPECT_TRUE(*running);
  EXPECT_THAT(bus->subscribed, ElementsAre("rt/io/kl15"));
  std::this_thread::sleep_for(10ms);
  EXPECT_EQ(bus->attempts, 0);
  kl15("\x02");
  bus->wait_for_attempts(3);
  kl15({"\0", 1});
  const int before = (std::lock_guard(bus->mutex), bus->attempts);
  std::this_thread::sleep_for(10ms);
  requester->stop();
  EXPECT_LE(bus->attempts, before + 1);  // one may have been in progress
  EXPECT_EQ(tests::body_bytes(*bus->last_request),
            "\x0a\x22\x0a\x18parametergroupnumberrqst\x12\x04\xec\xfe\0\0\x20\x03"s);
  EXPECT_FALSE(bus->last_request->retained);
  requester.reset();
  EXPECT_THAT(bus->unsubscribed, ElementsAre("rt/io/kl15"));
}

TEST_F(VinRequesterTest, ABadIgnitionMessageIsReportedAndChangesNothing) {
  start(1ms);
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
  bus->wait_for_attempts(2);
}

TEST_F(VinRequesterTest, ARefusedTokenIsReportedAndRequestedAgain) {
  bus->refuse = true;
  const auto log = tests::logged_lines([this] {
    start(1ms);
    kl15("\x01");
    bus->wait_for_attempts(2);
    requester->stop();
  });
  std::vector<std::string> expected{"DEBUG Start thread wait 1 seconds to Receive VIN"};
  for (int i = 0; i < bus->attempts; ++i) {
    expected.emplace_back("ERROR Unable to acquire PGN request token: not now");
    expected.emplace_back("ERROR Error request VIN on topic: rt/j1939can/tx/rqst_fb_ee");
  }
  expected.emplace_back("NOTICE Stop vin thread");
  EXPECT_EQ(log, expected);
  EXPECT_FALSE(bus->last_request);
}

TEST_F(VinRequesterTest, ANotificationRestartsThePeriodWithoutARequest) {
  constexpr auto period = 40ms;
  start(period);
  kl15("\x01");
  bool restarted = false;
  for (int i = 0; i < 10 && !restarted; ++i) {  // a loaded machine may deliver a notification too late
    std::this_thread::sleep_until(bus->wait_for_attempts(1) + period / 2);
    const auto notification = Clock::now();
    notify();
    restarted = bus->wait_for_attempts(1) >= notification + period;
  }
  EXPECT_TRUE(restarted);
}

// A notification of the requester needs the mutex, so a call that ends while the test holds it has not
// notified.
TEST_F(VinRequesterTest, OnlyAnAcceptedVinRestartsThePeriod) {
  start(1h);
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
  start(1ms);
  kl15("\x01");
  bus->wait_for_attempts(1);
  EXPECT_TRUE(requester_thread_exists());
  VinVariableJ1939Ecu variable("00", mutex, wakeup, running, 2);
  const auto message = tests::Group().bytes("data", "A").value("nof_bytes", 1).message();
  EXPECT_FALSE(variable.extract(message));
  EXPECT_TRUE(variable.extract(message));
  for (const auto deadline = Clock::now() + time_limit; requester_thread_exists();) {
    ASSERT_LT(Clock::now(), deadline);
    std::this_thread::yield();
  }
  const auto log = tests::logged_lines([this] {
    requester->stop();
    requester->stop();
  });
  EXPECT_THAT(log, ElementsAre("NOTICE Stop vin thread"));
}

TEST_F(VinRequesterTest, StopsAtOnceAtAnyMoment) {
  make(1h)->stop();
  for (int i = 0; i < 3000; ++i) {
    start(1h);
    notify();
    const auto instant = Clock::now() + i * 20ns;
    while (Clock::now() < instant) {
    }
    requester->stop();
    EXPECT_FALSE(*running);
  }
}

TEST_F(VinRequesterTest, DoesNotBeginAPeriodOnceTheFlagIsCleared) {
  std::unique_lock lock(*mutex);
  start(1h);
  while (!requester_thread_exists()) {
    std::this_thread::yield();
  }
  std::this_thread::sleep_for(1ms);  // so that it is most likely at the mutex
  *running = false;
  lock.unlock();
  while (requester_thread_exists()) {
    std::this_thread::yield();
  }
}

TEST_F(VinRequesterTest, ASecondInitEndsTheProcess) {
  EXPECT_DEATH(
      {
        start(1h);
        requester->init();
      },
      "terminate called");
}

}  // namespace
