#include "ecusim/player.h"

#include "support/testing.h"
#include "support/waiting_client.h"

namespace ecu::sim {
namespace {

TEST(PlayerTest, DroppedMessagesArePublishedLaterInOrder) {
  const auto client = std::make_shared<tests::WaitingClient>(2);
  const Player player(parse_scenario(R"({"messages": [
      {"topic": "b", "at_ms": 1, "raw": ""},
      {"topic": "a", "raw": ""},
      {"topic": "c", "at_ms": 2, "every_ms": 1, "times": 2, "raw": ""}]})")
                          .messages,
                      client);
  std::string topics;
  for (const auto& publication : client->wait_for(4)) {
    topics += publication.topic;
  }
  EXPECT_EQ(topics, "abcc");
}

}  // namespace
}  // namespace ecu::sim
