#include "diag/bus_pgn_request_client.h"
#include "support/fake_client.h"
#include "support/testing.h"

namespace {

using namespace ecu::tamu::diag;

constexpr const char* request_topic = "rt/j1939can/tx/rqst_fb_ee";
using Clock = BusPgnRequestClient::Clock;

class PgnRequestClientTest : public testing::Test {
 protected:
  std::string ask(const std::string& topic = request_topic) {
    const auto token = client.request_token(topic, 60);
    return token ? "granted" : client.error_str(token.error());
  }

  std::shared_ptr<tests::FakeClient> bus = std::make_shared<tests::FakeClient>();
  Clock::time_point now = Clock::now();
  BusPgnRequestClient client{bus, [this] { return now; }};
};

TEST_F(PgnRequestClientTest, GrantsATopicAgainOnceTheLastGrantIsOldEnough) {
  const std::string too_early = "the last request on the topic may still be answered";
  EXPECT_EQ(ask(), "granted");
  EXPECT_EQ(ask(), too_early);
  EXPECT_EQ(ask("rt/io/kl15"), "granted");
  now += 1249ms;
  EXPECT_EQ(ask(), too_early);
  now += 1ms;
  EXPECT_EQ(ask(), "granted");
  EXPECT_EQ(ask(), too_early);
}

TEST_F(PgnRequestClientTest, ARefusalDoesNotDelayTheNextGrant) {
  bus->is_connected = false;
  EXPECT_EQ(ask(), "the bus is not connected");
  bus->is_connected = true;
  EXPECT_EQ(ask("rt/unheard/of"), "the topic is unknown to the platform");
  EXPECT_EQ(ask(), "granted");
}

TEST_F(PgnRequestClientTest, OneOfTwoThreadsIsGrantedForTheTimeItRequested) {
  auto other = std::async(std::launch::async, [&] { return client.request_token(request_topic, 60); });
  const auto token = client.request_token(request_topic, 60);
  const auto other_token = other.get();
  ASSERT_NE(token.ok(), other_token.ok());
  EXPECT_EQ((token ? token : other_token)->valid_until, now + 60s);
  now += 2s;
  EXPECT_EQ(client.request_token(request_topic, UINT64_MAX)->valid_until, Clock::time_point::max());
}

}  // namespace
