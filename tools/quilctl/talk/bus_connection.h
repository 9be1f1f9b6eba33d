#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <ecu/tamu/com/transport_client.h>

#include "quilctl/base/failure.h"
#include "quilctl/base/options.h"

namespace ecu::ctl {

/// What happened on the bus.
struct Event {
  enum class Kind {
    up,       // the broker has let us in
    down,     // an attempt to connect has failed or the connection was lost; text: why
    refused,  // the broker does not let us have a subscription; text: its filter
    settled,  // all that the broker retains for the subscriptions has come
    message,  // text: its topic
  };
  Kind kind = Kind::message;
  std::string text;
  tamu::com::Message message;
  std::chrono::system_clock::time_point at;
  tamu::com::ConnectionFailure failure = tamu::com::ConnectionFailure::unreachable;  // of down
};

/// Thrown out of a wait by SIGINT, SIGTERM or SIGHUP.
struct Interrupted {
  int signal_number;
};

/// The broker cannot be reached, was lost, or does not let the program in.
class BrokerFailure : public Failure {
 public:
  BrokerFailure(std::string broker, const std::string& reason)
      : Failure(ExitCode::broker_unreachable, reason), broker_(std::move(broker)) {}

  [[nodiscard]] const std::string& broker() const noexcept { return broker_; }

 private:
  std::string broker_;
};

/// The program's connection to the bus, whose events one thread takes one after another. Make it before any
/// thread is started, and only one: it blocks these signals in every thread of the process, and lets them in
/// while it waits.
class Bus {
 public:
  using Clock = std::chrono::steady_clock;

  /// Throws `Failure` when the options name a file that cannot be used.
  explicit Bus(const BrokerOptions& options);
  /// Sends what was published, for at most 2 s, and closes the connection.
  ~Bus();
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  /// Before `connect`: the topics to hear, and at which quality of service.
  void subscribe(const std::string& filter, int max_qos = 0);

  /// Connects, and again whenever that fails or the connection is lost.
  void connect();

  /// The next event; nothing at the deadline, or as soon as the descriptor `input`, if given, can be read
  /// from without waiting. Throws `Interrupted`.
  [[nodiscard]] std::optional<Event> next(Clock::time_point deadline, int input = no_input);
  static constexpr int no_input = -1;

  /// How many messages were dropped since the last call because they came faster than they were taken.
  [[nodiscard]] std::uint64_t take_lost();

  /// False when the broker does not take messages as fast as they come: the message has to be published again
  /// later. What is published without a connection is lost, and so is what the broker does not want.
  bool publish(const std::string& topic, tamu::com::Message message);

  /// Where the broker is, as people write it.
  [[nodiscard]] const std::string& broker() const noexcept { return broker_; }
  /// What ends a command that cannot connect at first; both are those of the event.
  [[nodiscard]] BrokerFailure not_reachable(
      const std::string& reason,
      tamu::com::ConnectionFailure failure = tamu::com::ConnectionFailure::unreachable) const;
  /// Whether the broker runs on this machine, beyond doubt.
  [[nodiscard]] bool is_local() const noexcept { return broker_.front() == '/'; }

 private:
  class Inbox;

  std::string broker_;
  std::shared_ptr<Inbox> inbox_;
  std::shared_ptr<tamu::com::ITransportClient> client_;
};

}  // namespace ecu::ctl
