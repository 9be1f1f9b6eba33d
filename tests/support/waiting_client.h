#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/fake_client.h"
#include "support/process.h"

namespace tests {

/// A client without a broker whose publications a test waits for. It is not connected at the first questions,
/// and then refuses the first publications. Thread-safe.
class WaitingClient final : public FakeClient {
 public:
  explicit WaitingClient(int refusals = 0, int absences = 0) : refusals_(refusals), absences_(absences) {}

  [[nodiscard]] bool connected() const override {
    const std::lock_guard lock(mutex_);
    return absences_-- <= 0;
  }

  ecu::tamu::com::PublishResult publish(const std::string& topic, Message message) override {
    const std::lock_guard lock(mutex_);
    EXPECT_LE(absences_, 0) << "published without a connection";
    if (refusals_-- > 0) {
      return ecu::tamu::com::PublishResult::not_connected;
    }
    changed_.notify_all();
    return FakeClient::publish(topic, std::move(message));
  }
  /// All publications, once there are so many.
  std::vector<Published> wait_for(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, time_limit, [&] { return published.size() >= count; });
    return published;
  }

 private:
  mutable std::mutex mutex_;  // guards what follows and published
  std::condition_variable changed_;
  int refusals_;
  mutable int absences_;
};

}  // namespace tests
