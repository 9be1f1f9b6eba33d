#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/fake_client.h"
#include "support/process.h"

namespace tests {

/// A client without a broker whose publications a test waits for. It refuses the first ones, as without a
/// connection. Thread-safe.
class WaitingClient final : public FakeClient {
 public:
  explicit WaitingClient(int refusals = 0) : refusals_(refusals) {}

  ecu::tamu::com::PublishResult publish(const std::string& topic, Message message) override {
    const std::lock_guard lock(mutex_);
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
  std::mutex mutex_;  // guards refusals_ and published
  std::condition_variable changed_;
  int refusals_;
};

}  // namespace tests
