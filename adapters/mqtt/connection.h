#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <ecu/tamu/com/message.h>

#include "mqtt/backoff.h"
#include "mqtt/mqtt_session.h"
#include "mqtt/mqtt_settings.h"
#include "mqtt/name_lookup.h"
#include "posix/event.h"

namespace ecu::tamu::com::mqtt {

/// Keeps the connection to the broker: connects, and connects again whenever that failed or the connection
/// was lost. Each reason for being without one is logged once, until it changes. Has no lock: one thread at a
/// time uses it.
class Connection final : private MqttSession::Listener {
 public:
  using Clock = std::chrono::steady_clock;

  /// Called from inside `wait`; `connection_down` also from inside whatever sends. It may come without an
  /// `up` before it: for each attempt that fails, and for each connection that is lost.
  class Listener {
   public:
    virtual ~Listener() = default;
    virtual void connection_up() = 0;
    virtual void connection_down(const std::string& reason) = 0;
    virtual void message(const std::string& topic, Message message) = 0;
    virtual void subscription_refused(const std::string& filter) = 0;
    virtual void echoed() = 0;
  };

  /// Both must outlive the connection.
  Connection(const MqttSettings& settings, Listener& listener) : settings_(settings), listener_(listener) {}

  /// Asks for the connection: the next `wait` makes the first attempt.
  void open() { timer_ = Clock::now(); }

  /// Sleeps until something happens on the connection, `wake` is signalled (which this clears) or `deadline`
  /// has come, and does what is then to be done. Never blocks on the network.
  void wait(const posix::Event& wake, Clock::time_point deadline);

  /// Whether the broker has accepted the connection.
  [[nodiscard]] bool is_up() const { return session_ && session_->is_connected() && session_->is_open(); }

  /// Whether the connection would take another publication of that quality of service now.
  [[nodiscard]] bool accepts(bool acknowledged) const { return is_up() && session_->accepts(acknowledged); }

  /// Each does nothing without a connection; when the connection fails under it, the listener is told.
  void publish(const std::string& topic, const Message& message);
  void subscribe(const std::string& filter, int max_qos);
  void unsubscribe(const std::string& filter);
  void request_echo();
  /// Says good-bye to the broker; `is_up` until that has been written.
  void disconnect();
  void cork();
  void uncork();

  /// Whether all that was sent has been written and acknowledged.
  [[nodiscard]] bool idle() const { return !is_up() || session_->idle(); }

  /// Whether messages wait that the last `wait` left for the next.
  [[nodiscard]] bool more_to_read() const { return session_ && session_->more_to_read(); }

  /// Closes the connection at once and for good.
  void close();

 private:
  void connected() override;
  void message(const std::string& topic, Message message) override;
  void subscription_refused(const std::string& filter) override;
  void echoed() override;

  void begin_attempt();
  void open_session();
  void use_addresses(LookupResult result);
  void fail(const std::string& reason);
  void check(const Failure& failure);
  [[nodiscard]] Clock::time_point next_timer() const;
  void run_timers();

  const MqttSettings& settings_;
  Listener& listener_;
  Backoff backoff_;
  Clock::time_point timer_ =
      Clock::time_point::max();         // next attempt, or the end of this one; unused while up
  std::optional<NameLookup> lookup_;    // while the host's addresses are being looked up
  std::vector<std::string> addresses_;  // of the host; empty when not looked up yet
  std::size_t next_address_ = 0;        // the one to try next
  std::optional<MqttSession> session_;  // while there is a connection, or one is being made
  Clock::time_point up_since_;
  std::string reported_;  // why there is no connection, as the log has it
  bool closed_ = false;
};

}  // namespace ecu::tamu::com::mqtt
