#pragma once

#include "support/ports.h"
#include "system/daemon.h"

namespace tests {

/// All that the daemon works with.
class Surroundings {
 public:
  Surroundings() { meet(); }

  [[nodiscard]] std::string config() const { return config_for(broker.port(), far_side.config()); }

  /// Connects to the bus, where a restart of the broker has ended the last connection.
  void meet() {
    bus = std::make_unique<BusClient>(broker.port());
    bus->subscribe("system/#");
  }
  void restart_broker() {
    broker.restart();
    meet();
  }

  /// Whether the daemon is on line and serves everything again, at some time before the limit and before
  /// `has_ended`.
  bool is_served(const std::function<bool()>& has_ended) {
    const auto end = std::chrono::steady_clock::now() + time_limit;
    for (int attempt = 0; std::chrono::steady_clock::now() < end && !has_ended(); ++attempt) {
      if (answers("R09_" + std::to_string(attempt))) {
        return bus->wait_for_text(presence_topic, "online");
      }
    }
    return false;
  }

  Broker broker;
  FarSide far_side;
  std::unique_ptr<BusClient> bus;  // receives everything that the daemon publishes

 private:
  [[nodiscard]] bool answers(const std::string& value) const {
    constexpr std::chrono::milliseconds time(2000);
    far_side.drain();
    far_side.write_top_version(value);
    bus->publish("rt/system/hw_variant", hardware_variant(value));
    bus->publish("system/quil/secstore/setremote", value);
    if (!comes(*bus, "system/var/topversion", value, time)) {
      return false;
    }
    bus->publish("system/quil/request/sysparams", std::string_view());
    return comes(*bus, "system/sysparams", value, time) && comes(*bus, "system/var/hwvariant", value, time) &&
           comes(*bus, "system/quil/secstore/getremote", value, time);
  }
};

}  // namespace tests
