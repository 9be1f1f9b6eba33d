#pragma once

#include <cstdint>
#include <string>

namespace ecu::tamu::com {

/// Why there is no connection to the broker.
enum class ConnectionFailure {
  unreachable,      ///< The host has no address, or no broker listens there.
  tls,              ///< The TLS handshake failed.
  bad_credentials,  ///< The broker does not accept user name and password (CONNACK code 4).
  not_authorised,   ///< The broker does not admit this client (CONNACK code 5).
  refused,          ///< The broker refused the connection for another reason.
  closed_by_peer,   ///< The peer ended the connection.
  no_answer,        ///< An answer is overdue.
  protocol,         ///< The peer does not speak MQTT 3.1.1.
  internal,         ///< A failure on this side, such as a lack of memory.
};

/// Observes a client's connection to its broker. Called on the transport's leader, the thread that runs the
/// connection at the time, one call after another except where noted; a call must not block.
class IConnectionObserver {
 public:
  virtual ~IConnectionObserver() = default;

  /// The broker has accepted the connection.
  virtual void connection_up() = 0;

  /// An attempt to connect has failed, or the connection was lost; the client retries by itself. `reason` is
  /// for people: its wording may change.
  virtual void connection_down(ConnectionFailure failure, const std::string& reason) = 0;

  /// The broker refuses a subscription of this client. Called once until the broker grants it.
  virtual void subscription_refused(const std::string& filter) = 0;

  /// Called once per connection: the broker has answered every subscription that existed when the connection
  /// came up, and the subscribers' calls for all messages that it retains for them at quality of service 0
  /// have ended.
  virtual void subscriptions_settled() = 0;

  /// This number of messages on `filter` was dropped: the oldest that waited for a subscriber that was too
  /// slow, or messages that are too large to wait. Called on the transport thread that serves the subscriber,
  /// possibly at the same time as the other functions.
  virtual void messages_dropped(const std::string& filter, std::uint64_t count) = 0;
};

}  // namespace ecu::tamu::com
