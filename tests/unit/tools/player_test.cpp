#include "ecusim/player.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "support/fake_client.h"

namespace ecu::sim {
namespace {

/// A client without a connection for the first publications.
class UnreliableClient final : public tests::FakeClient {
 public:
  explicit UnreliableClient(int refusals) : refusals_(refusals) {}

  tamu::com::PublishResult publish(const std::string& topic, Message /*message*/) override {
    const std::lock_guard lock(mutex_);
    if (refusals_-- > 0) {
      return tamu::com::PublishResult::not_connected;
    }
    sent_ += topic;
    changed_.notify_all();
    return tamu::com::PublishResult::success;
  }

  std::string wait_for_topics(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return sent_.size() >= count; });
    return sent_.substr(0, count);
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int refusals_;      // guarded by mutex_
  std::string sent_;  // guarded by mutex_
};

TEST(PlayerTest, DroppedMessagesArePublishedLaterInOrder) {
  const auto client = std::make_shared<UnreliableClient>(2);
  const Player player(parse_scenario(R"({"messages": [
      {"topic": "b", "at_ms": 1, "raw": ""},
      {"topic": "a", "raw": ""},
      {"topic": "c", "at_ms": 2, "every_ms": 1, "times": 2, "raw": ""}]})")
                          .messages,
                      client);
  EXPECT_EQ(client->wait_for_topics(4), "abcc");
}

}  // namespace
}  // namespace ecu::sim
