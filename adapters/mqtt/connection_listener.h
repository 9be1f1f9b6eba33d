#pragma once

#include <chrono>
#include <string>

#include <ecu/tamu/com/connection_observer.h>
#include <ecu/tamu/com/message.h>

namespace ecu::tamu::com::mqtt {

/// The requests that a fence marks the end of. A fence is a request that every broker must answer; its answer
/// shows that the broker has handled everything sent before.
enum class Fence { subscriptions, publication };

/// A broker that acknowledges later than this may have given up a part of its work.
inline constexpr std::chrono::seconds late_acknowledgement{3};

/// Observes a connection. Called by the thread that uses the connection. An exception from `message` costs
/// that message; one from another call fails the connection, and the client reconnects.
class ConnectionListener {
 public:
  virtual ~ConnectionListener() = default;

  /// The broker has accepted the connection.
  virtual void connection_up() = 0;
  /// An attempt has failed, or a connection was lost, perhaps because `connection_up` threw. Also called from
  /// inside every function that sends. Must not throw.
  virtual void connection_down(ConnectionFailure failure, const std::string& reason) = 0;
  /// A message has arrived on a subscribed topic, at most `max_waiting_bytes` large.
  virtual void message(const std::string& topic, Message message) = 0;
  /// A message has arrived that is larger than `max_waiting_bytes`, so that nothing could queue it.
  virtual void oversized_message(const std::string& topic) = 0;
  virtual void subscription_refused(const std::string& filter) = 0;
  virtual void subscription_granted(const std::string& filter) = 0;
  /// The broker has answered a fence: it has handled everything that was sent before it on this connection.
  virtual void fence_answered(Fence fence) = 0;
  /// The broker has taken longer than `late_acknowledgement` to acknowledge a publication.
  virtual void acknowledged_late() = 0;
};

}  // namespace ecu::tamu::com::mqtt
