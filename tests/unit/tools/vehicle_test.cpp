#include "ecusim/vehicle.h"

#include <gtest/gtest.h>

#include <cmath>
#include <condition_variable>
#include <mutex>

#include <ecu/tamu/rt/signal_adapter.h>

#include "support/fake_client.h"
#include "support/rt_messages.h"

namespace ecu::sim {
namespace {

using Answers = std::vector<std::string>;

constexpr const char* request_topic = "rt/j1939can/tx/rqst_fb_ee";

/// Records answers as "ADDRESS NOF_BYTES VIN".
class AnsweredClient final : public tests::FakeClient {
 public:
  tamu::com::PublishResult publish(const std::string& topic, Message message) override {
    const auto group = rt_group(topic, message);
    const auto* const vin = group->signal("data");
    const auto* const size = group->signal("nof_bytes");
    EXPECT_TRUE(vin->status() == 3 && size->status() == 3);
    const std::lock_guard lock(mutex_);
    answers_.push_back(topic.substr(topic.size() - 2) + " " +
                       std::to_string(std::lround(size->value_scaled())) + " " +
                       std::string(vin->data().begin(), vin->data().end()));
    changed_.notify_all();
    return tamu::com::PublishResult::success;
  }

  Answers wait_for(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(20), [&] { return answers_.size() >= count; });
    return answers_;
  }

 private:
  static std::shared_ptr<const tamu::rt::SignalGroup> rt_group(const std::string& topic,
                                                               const Message& message) {
    return tamu::rt::SignalAdapter::instance().unpack(topic, message).value();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  Answers answers_;  // guarded by mutex_
};

/// The answers to `requests` requests for the VIN, after `count` answers have arrived.
Answers answers_to(const std::string& members, int requests, std::size_t count) {
  const auto client = std::make_shared<AnsweredClient>();
  Vehicle vehicle(
      *parse_scenario(R"({"messages": [], "vehicle": {"vin": "ABC", "source_address": "fe")" + members + "}}")
           .vehicle,
      client);
  using std::string_view_literals::operator""sv;
  const auto ask = [&](std::string_view pgn) {
    client->last_observer->message(request_topic,
                                   tests::Group().bytes("parametergroupnumberrqst", pgn).message());
  };
  ask("\xeb\xfe\0\0"sv);
  ask("\xec\xfe\0"sv);
  client->last_observer->message(request_topic, tests::raw_message("no request"));
  for (int i = 0; i < requests; ++i) {
    ask("\xec\xfe\0\0"sv);
  }
  return client->wait_for(count);
}

TEST(VehicleTest, EveryRequestForTheVinIsAnsweredAsTheScenarioSays) {
  EXPECT_EQ(answers_to("", 2, 2), (Answers{"fe 3 ABC", "fe 3 ABC"}));
  EXPECT_EQ(answers_to(R"(, "answer_after_ms": 1, "padding": true)", 1, 1), (Answers{"fe 7 ABC   *"}));
  EXPECT_EQ(answers_to(R"(, "wrong_vin_every": 2)", 3, 3), (Answers{"fe 3 ABC", "fe 3 AB0", "fe 3 ABC"}));
  EXPECT_EQ(answers_to(R"(, "change_after": {"answers": 1, "vin": "Z"})", 2, 2),
            (Answers{"fe 3 ABC", "fe 1 Z"}));
  EXPECT_EQ(answers_to(R"(, "second": {"vin": "S", "source_address": "00"})", 1, 2),
            (Answers{"fe 3 ABC", "00 1 S"}));
}

TEST(VehicleTest, EndsAtOnceWhileAnAnswerIsPending) {
  EXPECT_EQ(answers_to(R"(, "answer_after_ms": 3600000)", 1, 0), Answers());
}

}  // namespace
}  // namespace ecu::sim
