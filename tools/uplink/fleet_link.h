#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/thread_safety.h>

#include "uplink/old_topics.h"
#include "uplink/unit_clock.h"
#include "uplink/uplink_settings.h"

namespace ecu::uplink {

/// The connection to the fleet's broker under one unit's name. Everything that it publishes is retained, at
/// quality of service 1. Its presence is "online", "offline" after an orderly stop, and "lost" otherwise. On
/// each connection it publishes the time. Callable from any thread.
class FleetLink {
 public:
  /// The unit's wall clock; nothing while it is not set. Called from any thread.
  using WallClock = std::function<std::optional<WallTime>()>;

  /// Begins to connect. `settings` is only read during the call. Clears `old_topics`, and removes each that
  /// the broker has cleared. `connected` is called on the transport's leader for each connection, before what
  /// was published so far is sent; it must not wait for a thread that destroys this link.
  FleetLink(const UplinkSettings& settings, const std::string& unit, WallClock wall_clock,
            const std::shared_ptr<OldTopics>& old_topics, std::function<void()> connected);
  /// Stops, which takes at most 2 s.
  ~FleetLink() = default;
  FleetLink(const FleetLink&) = delete;
  FleetLink& operator=(const FleetLink&) = delete;

  [[nodiscard]] const std::string& unit() const noexcept { return unit_; }

  /// The topic of `key`, such as "var/vehicleid", for this unit.
  [[nodiscard]] std::string topic(const std::string& key) const { return tree_ + key; }

  /// Publishes `payload` on a topic. An empty one clears what the broker retains.
  void publish(const std::string& topic, const std::string& payload);

  /// Publishes when the present or last connection began if the wall clock was not set at that time.
  void complete_connection_time() TAMU_EXCLUDES(mutex_);

  /// Publishes again what the connections of former names may have undone with messages that arrived late:
  /// clears the old topics, and publishes the presence and the time of the connection.
  void repair() TAMU_EXCLUDES(mutex_);

  /// Requests the stop; see ITransportClient::stop.
  void stop() { client_->stop(); }

 private:
  class ConnectionObserver;

  void clear_old_topics();
  void connection_up() TAMU_EXCLUDES(mutex_);
  void publish_connection_time() TAMU_REQUIRES(mutex_);

  // Constant after construction.
  const std::string unit_;
  const std::string tree_;
  const WallClock wall_clock_;
  const std::function<void()> connected_;

  tamu::Mutex mutex_;  // held while the time is published, so that the latest one stays
  BootTime connected_at_ TAMU_GUARDED_BY(mutex_){};       // 0: never
  bool is_time_missing_ TAMU_GUARDED_BY(mutex_) = false;  // because the wall clock was not set

  // With its own synchronisation.
  const std::shared_ptr<OldTopics> old_topics_;
  const std::shared_ptr<tamu::com::ITransportClient> client_;
};

}  // namespace ecu::uplink
