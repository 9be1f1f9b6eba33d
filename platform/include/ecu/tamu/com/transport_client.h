#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <ecu/tamu/com/connection_observer.h>
#include <ecu/tamu/com/message.h>
#include <ecu/tamu/config/configuration.h>

namespace ecu::tamu::com {

/// Receives the messages on its subscribed topics.
class ISubscriptionObserver {
 public:
  virtual ~ISubscriptionObserver() = default;

  /// Called on a thread of the transport. One observer's calls come one after another, in the order of
  /// arrival, though not always on the same thread. A call may block: it delays neither the network nor
  /// another observer. An exception is logged at ERROR with the topic and has no other effect.
  virtual void message(const std::string& topic, const Message& msg) = 0;
};

enum class PublishResult : int {
  /// Passed to the connection, or kept for the next one (a retained message).
  success = 0,
  /// Dropped: there is no connection and the message is not retained.
  not_connected = 1,
  /// Dropped: the broker does not accept messages as fast as they are published.
  overload = 2,
};

/// The unit's message bus. Every operation may be called from any thread.
class ITransportClient {
 public:
  virtual ~ITransportClient() = default;

  /// Requests the connection. An unreachable broker is not a failure: from `start` on the client retries
  /// until it is connected, and reconnects whenever the connection is lost. Called once, before `start`.
  virtual void connect() = 0;

  /// Starts the threads that maintain the connection and deliver messages. Called once.
  virtual void start() = 0;

  /// Blocks until `stop`; unblocks SIGINT and SIGTERM only while it waits. When it returns, no observer is
  /// being called, none will be, and the connection is closed. The caller must have blocked both signals.
  virtual void run() = 0;

  /// Makes `run` return, within 2 s unless an observer blocks for longer. May be called before `run`, and
  /// from a signal handler that interrupted the wait inside `run`.
  virtual void stop() = 0;

  /// Delivers the messages of `topic`, a topic filter (MQTT 3.1.1, 4.7), to `observer`. `max_qos` is the
  /// subscription's maximum quality of service, 0 to 2. A second call with the same topic and observer
  /// changes nothing.
  virtual void subscribe(const std::string& topic, int max_qos,
                         std::shared_ptr<ISubscriptionObserver> observer) = 0;

  /// Ends a subscription. When it returns, the observer is not being called for `topic` and will not be
  /// called again. If called from inside that call, it does not wait for it.
  virtual void unsubscribe(const std::string& topic,
                           const std::shared_ptr<ISubscriptionObserver>& observer) = 0;

  /// Sends `message` on `topic`. The latest retained message of each topic is kept and published again on
  /// every new connection. Never blocks on the network, with one exception: from an observer's call an
  /// unretained message waits up to 1 s for a slow broker.
  virtual PublishResult publish(const std::string& topic, Message message) = 0;

  /// Whether there is a connection, as far as the client knows.
  [[nodiscard]] virtual bool connected() const = 0;
};

/// What a client announces about itself: retained texts at quality of service 1.
struct Presence {
  std::string topic;
  std::string online;   ///< after each connection
  std::string offline;  ///< on an orderly stop
  std::string lost;     ///< the connection's last will (MQTT 3.1.1, 3.1.2.5)
};

/// How a client of another bus differs from one of the unit's.
struct ClientTraits {
  /// Replaces the presence that the key "presence" turns on.
  std::optional<Presence> presence{};
  /// Every attempt to reconnect follows a random pause of at most this time, so that the clients of a large
  /// bus do not return all at once. 0: the short pauses of a unit's bus.
  std::chrono::seconds reconnect_spread{0};
  /// The time from a connection, or from a late acknowledgement, to the moment at which the presence and all
  /// retained messages are published again: a cluster of brokers that elects a leader may acknowledge a
  /// message that it does not retain, and publish the last will of an earlier connection late. 0: not again.
  std::chrono::seconds repeat_after{0};
  /// If set, called on the transport's leader when the broker has acknowledged an empty retained message of
  /// quality of service 1, which clears the topic. The message is then not published again, so that it does
  /// not clear what another client publishes there. Must neither block nor throw.
  std::function<void(const std::string& topic)> topic_cleared{};
  /// How many times the usual number of messages and bytes may wait for an observer: more for a bus whose
  /// broker retains very many messages, which arrive at once.
  std::size_t backlog = 1;
  /// Distinguishes the clients of one process in the service manager's status text.
  std::string name{};
};

enum class TransportType : int { mqtt = 0 };

/// Creates a client from the keys "client_name", "host", "port", "username", "password", "cafile",
/// "certfile", "keyfile", "keepalive" and "presence" of `config`, which is only read during the call.
/// `observer`, if any, observes the connection to the broker. Throws std::invalid_argument for another
/// transport type.
[[nodiscard]] std::shared_ptr<ITransportClient> create_client(
    const std::unique_ptr<config::Configuration>& config, TransportType type,
    std::shared_ptr<IConnectionObserver> observer = nullptr, const ClientTraits& traits = {});

/// Initialises the transport's library for the whole process. Call once, before the first client.
void library_init();
/// Reverses `library_init`. Call after the last client has stopped.
void library_cleanup();

}  // namespace ecu::tamu::com
