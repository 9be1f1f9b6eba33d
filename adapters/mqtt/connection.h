#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <ecu/tamu/com/message.h>

#include "mqtt/backoff.h"
#include "mqtt/connection_listener.h"
#include "mqtt/mqtt_session.h"
#include "mqtt/mqtt_settings.h"
#include "mqtt/name_lookup.h"
#include "posix/event.h"

namespace ecu::tamu::com::mqtt {

/// Keeps the connection to the broker: connects, and reconnects whenever an attempt fails or the connection
/// is lost. The reason is logged only when it changes. Has no lock: one thread at a time uses it. No
/// operation throws: a failure on this side, such as a lack of memory or an exception from the listener,
/// fails the connection, and the next attempt follows after its pause.
class Connection final {
 public:
  using Clock = std::chrono::steady_clock;

  /// After so many failures in a row for lack of memory the process ends with a line in the log.
  static constexpr int max_memory_failures = 10;

  /// `settings` and `listener` must outlive the connection. The listener is called from inside `wait`, and
  /// `connection_down` also from inside every function that sends. It reports each failed attempt and each
  /// lost connection, so it may come without a `connection_up` before it.
  Connection(const MqttSettings& settings, ConnectionListener& listener, Resolver resolve = look_up);

  /// Requests the connection: the next `wait` makes the first attempt.
  void open() { timer_ = Clock::now(); }

  /// Sleeps until something happens on the connection, `wake` is signalled (this clears it) or `deadline` has
  /// passed, then handles it. Never blocks on the network.
  void wait(const posix::Event& wake, Clock::time_point deadline) noexcept;

  /// Whether the broker has accepted the connection.
  [[nodiscard]] bool is_up() const { return up_ && session_ && session_->is_open(); }

  /// Whether the connection accepts publications now: everything before has been written. It takes over a
  /// whole batch, whether that can be written at once or not.
  [[nodiscard]] bool accepts_publications() const { return is_up() && session_->accepts_publications(); }
  /// How many of them may be of quality of service 1. The connection must be up.
  [[nodiscard]] std::size_t room_for_acknowledged() const { return session_->room_for_acknowledged(); }

  /// Each does nothing without a connection. If the connection fails during the call, the listener learns of
  /// it.
  void publish(const std::string& topic, const Message& message, Clock::time_point now) noexcept;
  void subscribe(const std::string& filter, int max_qos) noexcept;
  void unsubscribe(const std::string& filter) noexcept;
  void request_fence(Fence fence) noexcept;
  /// Sends the DISCONNECT packet, if the connection accepts it at once. Only `close` may follow.
  void disconnect() noexcept;
  void cork();
  void uncork();

  /// Ends the connection, or the attempt, as if it had failed.
  void fail(const Fault& fault) noexcept;
  /// Makes the next attempt after the shortest pause. For use after a failure whose cause has been removed.
  void retry_soon();

  /// Whether everything that was sent has been written and acknowledged.
  [[nodiscard]] bool idle() const { return !is_up() || session_->idle(); }

  /// Whether the last `wait` left packets for the next one to read.
  [[nodiscard]] bool more_to_read() const { return session_ && session_->more_to_read(); }

  /// Closes the connection at once and for good.
  void close();

 private:
  template <class Action>
  void protect(Action action) noexcept;
  template <class Action>
  void with_session(Action action) noexcept;
  void handle_session(short events);
  void begin_attempt();
  void open_session();
  void use_addresses(LookupResult result);
  void check(const Failure& failure);
  void end_if_memory_stays_short(const Fault& fault, bool was_up) noexcept;
  void report(bool lost, const std::string& reason) noexcept;
  [[nodiscard]] Clock::time_point next_timer() const;
  void run_timers();

  const MqttSettings& settings_;
  ConnectionListener& listener_;
  const Resolver resolve_;
  Backoff backoff_;
  Clock::time_point timer_ =
      Clock::time_point::max();         // next attempt, or the end of this one; unused while up
  bool attempting_ = false;             // an attempt is in progress; otherwise `timer_` ends a pause
  std::optional<NameLookup> lookup_;    // in progress, perhaps since an earlier attempt: one at a time
  std::vector<std::string> addresses_;  // of the host; empty when not looked up yet
  std::size_t next_address_ = 0;        // the one to try next
  std::optional<MqttSession> session_;  // while connected or connecting
  bool up_ = false;                     // the listener knows of the connection
  Clock::time_point up_since_;
  int memory_failures_ = 0;  // in a row
  std::string reported_;     // the loss or failure that was logged last, until a connection is stable
  bool connection_is_reported_ = false;  // in the newest line
  bool closed_ = false;
};

}  // namespace ecu::tamu::com::mqtt
