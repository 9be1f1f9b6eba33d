#pragma once

#include <memory>
#include <string>

#include <ecu/tamu/com/transport_client.h>

#include "uplink/uplink_settings.h"

namespace ecu::uplink {

/// The connection to the fleet's broker under one unit's name. Everything that it publishes is retained, at
/// quality of service 1. Its presence is "online", "offline" after an orderly stop, and "lost" otherwise.
/// Callable from any thread.
class FleetLink {
 public:
  /// Begins to connect. `settings` is only read during the call.
  FleetLink(const UplinkSettings& settings, const std::string& unit);
  /// Stops, which takes at most 2 s.
  ~FleetLink() = default;
  FleetLink(const FleetLink&) = delete;
  FleetLink& operator=(const FleetLink&) = delete;

  [[nodiscard]] const std::string& unit() const noexcept { return unit_; }

  /// The topic of `key`, such as "var/vehicleid", for this unit.
  [[nodiscard]] std::string topic(const std::string& key) const { return tree_ + key; }

  /// Publishes `payload` on a topic. An empty one clears what the broker retains.
  void publish(const std::string& topic, const std::string& payload);

  /// Requests the stop; see ITransportClient::stop.
  void stop() { client_->stop(); }

 private:
  const std::string unit_;
  const std::string tree_;
  const std::shared_ptr<tamu::com::ITransportClient> client_;
};

/// The key of the link's presence.
inline constexpr const char* presence_key = "presence";

}  // namespace ecu::uplink
