#pragma once

#include <functional>
#include <string>
#include <utility>

#include <ecu/tamu/com/transport_client.h>

namespace ecu::sim {

/// Watches the daemon's presence, and calls `on_return` each time that it comes on line again. The first time
/// does not count: nothing was lost before it.
class DaemonReturn final : public tamu::com::ISubscriptionObserver {
 public:
  explicit DaemonReturn(std::function<void()> on_return) : on_return_(std::move(on_return)) {}

  void message(const std::string& topic, const tamu::com::Message& msg) override;

 private:
  const std::function<void()> on_return_;
  bool has_been_on_line_ = false;  // of the deliveries, which come one after another
};

}  // namespace ecu::sim
