#pragma once

#include <functional>
#include <string>
#include <utility>

#include <ecu/tamu/com/transport_client.h>

namespace ecu::sim {

/// Calls `on_return` each time the daemon is back on line, according to its presence on the bus. The first
/// time does not count, because nothing has been lost before it.
class DaemonReturn final : public tamu::com::ISubscriptionObserver {
 public:
  explicit DaemonReturn(std::function<void()> on_return) : on_return_(std::move(on_return)) {}

  void message(const std::string& topic, const tamu::com::Message& msg) override;

 private:
  const std::function<void()> on_return_;
  bool has_been_on_line_ = false;  // used by deliveries only, of which there is one at a time
};

}  // namespace ecu::sim
