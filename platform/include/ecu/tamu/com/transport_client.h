#pragma once

#include <memory>
#include <string>

#include <ecu/tamu/com/connection_observer.h>
#include <ecu/tamu/com/message.h>
#include <ecu/tamu/config/configuration.h>

namespace ecu::tamu::com {

/// Receives the messages of the topics that it is subscribed to.
class ISubscriptionObserver {
 public:
  virtual ~ISubscriptionObserver() = default;

  /// Called on a thread of the transport. One observer's calls come one after another, in the order of
  /// arrival, though not always on the same thread. A call may block: it delays neither the network nor
  /// another observer. An exception is logged at ERROR with the topic and goes no further.
  virtual void message(const std::string& topic, const Message& msg) = 0;
};

enum class PublishResult : int {
  /// Handed to the connection, or remembered for the next one (a retained message).
  success = 0,
  /// Dropped: there is no connection and the message is not retained.
  not_connected = 1,
  /// Dropped: the broker does not take messages as fast as they come.
  overload = 2,
};

/// The unit's message bus. Every operation may be called from any thread.
class ITransportClient {
 public:
  virtual ~ITransportClient() = default;

  /// Asks for the connection. A broker that is not there is no failure: from `start` on the client tries
  /// until it is, and again whenever the connection is lost. Called once, before `start`.
  virtual void connect() = 0;

  /// Starts the threads that keep the connection and deliver messages. Called once.
  virtual void start() = 0;

  /// Blocks until `stop`; lets SIGINT and SIGTERM in only while it waits. When it returns no observer is
  /// being called, none will be, and the connection is closed. The caller must have blocked both signals.
  virtual void run() = 0;

  /// Makes `run` return, within 2 s unless an observer blocks for longer. May be called before `run`, and
  /// from a signal handler that interrupted the wait inside `run`.
  virtual void stop() = 0;

  /// Delivers the messages of `topic`, a topic filter (MQTT 3.1.1, 4.7), to `observer`. `max_qos` is the
  /// subscription's maximum quality of service, 0 to 2. Made again for the same pair it changes nothing.
  virtual void subscribe(const std::string& topic, int max_qos,
                         std::shared_ptr<ISubscriptionObserver> observer) = 0;

  /// Takes a subscription back. When it returns the observer is not being called for `topic` and will not be
  /// again; called from inside that very call it does not wait for itself.
  virtual void unsubscribe(const std::string& topic,
                           const std::shared_ptr<ISubscriptionObserver>& observer) = 0;

  /// Sends `message` on `topic`. A retained message is remembered, the latest of each topic, and published
  /// again on every new connection. Never blocks on the network, but for one case: out of an observer's call
  /// an unretained message waits for up to 1 s for a broker that does not take messages as fast as they come.
  virtual PublishResult publish(const std::string& topic, Message message) = 0;

  /// Whether there is a connection, as far as is known at the moment.
  [[nodiscard]] virtual bool connected() const = 0;
};

enum class TransportType : int { mqtt = 0 };

/// Makes a client from the keys "client_name", "host", "port", "username", "password", "cafile", "certfile",
/// "keyfile", "keepalive" and "presence" of `config`, which is only read during the call. `observer`, if any,
/// is told how the client stands with the broker. Throws std::invalid_argument for another transport type.
[[nodiscard]] std::shared_ptr<ITransportClient> create_client(
    const std::unique_ptr<config::Configuration>& config, TransportType type,
    std::shared_ptr<IConnectionObserver> observer = nullptr);

/// Sets the transport's library up for the whole process. Call once, before the first client.
void library_init();
/// Takes `library_init` back. Call after the last client has stopped.
void library_cleanup();

}  // namespace ecu::tamu::com
