#pragma once

#include <string>
#include <utility>

#include <ecu/tamu/com/connection_observer.h>

namespace ecu::sim {

/// Reports the connection to the user, each change once.
class ConnectionReport final : public tamu::com::IConnectionObserver {
 public:
  explicit ConnectionReport(std::string broker) : broker_(std::move(broker)) {}

  void connection_up() override;
  void connection_down(tamu::com::ConnectionFailure failure, const std::string& reason) override;
  void subscription_refused(const std::string& filter) override;
  void subscriptions_settled() override {}
  void messages_dropped(const std::string& filter, std::uint64_t count) override;

 private:
  const std::string broker_;
  std::string reported_;  // why there is no connection; empty: connected, or not reported yet
};

}  // namespace ecu::sim
