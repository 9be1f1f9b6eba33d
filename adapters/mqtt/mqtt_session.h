#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <ecu/tamu/com/message.h>

#include "mqtt/connection_listener.h"
#include "mqtt/fault.h"
#include "mqtt/mqtt_settings.h"
#include "mqtt/tls_context.h"

namespace ecu::tamu::com::mqtt {

class MqttLibrary;

/// One connection to the broker, from the first packet to the last (MQTT 3.1.1, clean session). A thin layer
/// over the client library: the owner waits for the descriptor and calls `handle`. Not thread-safe. A failed
/// session cannot be used again.
class MqttSession {
 public:
  /// The maximum number of publications with quality of service 1 that await their acknowledgement.
  static constexpr std::size_t max_unacknowledged = 20;

  /// Both must outlive the session. It calls `listener` from inside `handle` only, and never calls
  /// `connection_up` or `connection_down`: the owner notices these events itself.
  MqttSession(const MqttSettings& settings, ConnectionListener& listener);
  ~MqttSession();

  /// Begins to connect, without waiting, to a numeric address or the path of a socket.
  [[nodiscard]] Failure open(const std::string& address);

  /// The descriptor and the events to wait for with `poll`.
  [[nodiscard]] int fd() const;
  [[nodiscard]] short wanted_events() const;

  /// Reads and writes as far as the events that `poll` reported allow. Stops reading after 8 packets or 256
  /// KiB, so that one call neither overfills an observer's queue nor lasts as long as a flood; `more_to_read`
  /// is then true. Several packets in one TLS record, or acknowledgements that are awaited, may exceed these
  /// limits.
  [[nodiscard]] Failure handle(short events);
  [[nodiscard]] bool more_to_read() const noexcept { return more_to_read_; }

  /// Whether the transport connection is established.
  [[nodiscard]] bool is_reachable() const noexcept { return reachable_; }
  /// Whether the broker has accepted the connection.
  [[nodiscard]] bool is_connected() const noexcept;
  /// Whether the session is connected or connecting.
  [[nodiscard]] bool is_open() const { return fd() >= 0; }

  /// When `keep_alive` must be called next. It fails when an answer of the broker is overdue.
  [[nodiscard]] std::chrono::steady_clock::time_point keep_alive_due() const;
  [[nodiscard]] Failure keep_alive();

  /// Whether the connection accepts publications now: everything before has been written.
  [[nodiscard]] bool accepts_publications() const;
  /// How many publications of quality of service 1 the connection accepts now.
  [[nodiscard]] std::size_t room_for_acknowledged() const;
  /// Whether everything that was sent has been written and acknowledged.
  [[nodiscard]] bool idle() const;

  /// A message or topic that the library refuses is logged and does not fail the session. `now` spares a look
  /// at the clock for each of many publications.
  [[nodiscard]] Failure publish(const std::string& topic, const Message& message,
                                std::chrono::steady_clock::time_point now);
  [[nodiscard]] Failure subscribe(const std::string& filter, int max_qos);
  [[nodiscard]] Failure unsubscribe(const std::string& filter);

  /// Sends a request that the broker answers after it has handled everything sent before.
  [[nodiscard]] Failure request_fence(Fence fence);

  /// Sends the DISCONNECT packet; the session is no longer open once it has been written.
  [[nodiscard]] Failure disconnect();

  /// Holds written data back until `uncork`, so that it leaves in full segments (TCP only).
  void cork() const;
  void uncork() const;

 private:
  [[nodiscard]] Failure configure();
  [[nodiscard]] Failure configure_tls();
  [[nodiscard]] Failure configured(const char* what, int result) const;
  [[nodiscard]] Failure finish_connecting();
  [[nodiscard]] Failure read();
  [[nodiscard]] Failure written(int result,
                                std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now());
  [[nodiscard]] Failure outcome(int result);
  [[nodiscard]] Fault explained(Fault general) const;
  void set_tcp_option(int option, int value) const;

  const MqttSettings& settings_;
  std::optional<TlsContext> tls_;  // used by the library's object
  std::unique_ptr<MqttLibrary> library_;
  bool reachable_ = false;
  bool more_to_read_ = false;
  std::chrono::steady_clock::time_point last_read_;
  std::chrono::steady_clock::time_point last_write_;
};

}  // namespace ecu::tamu::com::mqtt
