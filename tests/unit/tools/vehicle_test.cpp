#include "ecusim/vehicle.h"

#include <cmath>

#include <ecu/tamu/rt/signal_adapter.h>

#include "support/rt_messages.h"
#include "support/testing.h"
#include "support/waiting_client.h"

namespace ecu::sim {
namespace {

using Answers = std::vector<std::string>;

constexpr const char* request_topic = "rt/j1939can/tx/rqst_fb_ee";

/// "ADDRESS NOF_BYTES VIN".
std::string text_of(const tests::FakeClient::Published& answer) {
  const auto group = tamu::rt::SignalAdapter::instance().unpack(answer.topic, answer.message).value();
  const auto& vin = *group->signal("data");
  const auto& size = *group->signal("nof_bytes");
  EXPECT_TRUE(vin.status() == 3 && size.status() == 3);
  return answer.topic.substr(answer.topic.size() - 2) + " " +
         std::to_string(std::lround(size.value_scaled())) + " " +
         std::string(vin.data().begin(), vin.data().end());
}

/// The answers to `requests` requests for the VIN, after `count` answers have arrived.
Answers answers_to(const std::string& members, int requests, std::size_t count) {
  const auto client = std::make_shared<tests::WaitingClient>();
  Vehicle vehicle(
      *parse_scenario(R"({"messages": [], "vehicle": {"vin": "ABC", "source_address": "fe")" + members + "}}")
           .vehicle,
      client);
  const auto ask = [&](std::string_view pgn) {
    client->last_observer->message(request_topic,
                                   tests::Group().bytes("parametergroupnumberrqst", pgn).message());
  };
  ask("\xeb\xfe\0\0"s);
  ask("\xec\xfe\0"s);
  client->last_observer->message(request_topic, tests::raw_message("no request"));
  for (int i = 0; i < requests; ++i) {
    ask("\xec\xfe\0\0"s);
  }
  Answers answers;
  std::ranges::transform(client->wait_for(count), std::back_inserter(answers), text_of);
  return answers;
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
