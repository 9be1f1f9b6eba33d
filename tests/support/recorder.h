#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <ecu/tamu/com/transport_client.h>

#include "support/process.h"

namespace tests {

/// Records "topic=payload", then calls the test's function.
class Recorder final : public ecu::tamu::com::ISubscriptionObserver {
 public:
  using Action = std::function<void(const std::string& topic, const ecu::tamu::com::Message& msg)>;

  explicit Recorder(Action action) : action_(std::move(action)) {}

  void message(const std::string& topic, const ecu::tamu::com::Message& msg) override {
    {
      const std::lock_guard lock(mutex_);
      seen_.push_back(topic + "=" + std::string(msg.payload.begin(), msg.payload.end()));
      changed_.notify_all();
    }
    if (action_) {
      action_(topic, msg);
    }
  }

  bool wait_for(std::size_t calls) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, time_limit, [&] { return seen_.size() >= calls; });
  }
  std::vector<std::string> seen() {
    const std::lock_guard lock(mutex_);
    return seen_;
  }

 private:
  const Action action_;
  std::mutex mutex_;  // guards the rest
  std::condition_variable changed_;
  std::vector<std::string> seen_;
};

inline std::shared_ptr<Recorder> make_recorder(Recorder::Action action = nullptr) {
  return std::make_shared<Recorder>(std::move(action));
}

}  // namespace tests
