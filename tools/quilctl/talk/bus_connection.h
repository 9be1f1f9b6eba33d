#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <ecu/tamu/com/transport_client.h>

#include "quilctl/base/failure.h"
#include "quilctl/base/options.h"
#include "quilctl/talk/bus_event.h"
#include "quilctl/talk/termination.h"

namespace ecu::ctl {

class EventQueue;

/// The failure of a command whose subscription the broker refuses.
[[nodiscard]] Failure subscription_refused(const std::string& filter);

/// The program's connection to the bus. One thread takes its events, one after another. Create only one,
/// before starting any thread: see `TerminationHandler`.
class BusConnection {
 public:
  using Clock = std::chrono::steady_clock;

  /// Connects, and reconnects whenever that fails or the connection is lost. Subscribes to the topics of
  /// `filters` at a maximum quality of service. Throws as `client_configuration` does.
  BusConnection(const BrokerOptions& options, const std::vector<std::string>& filters, int max_qos = 0);
  /// Sends what has been published, for at most 2 s, and closes the connection.
  ~BusConnection();
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;

  /// The next event; nothing at the deadline, as soon as the descriptor `input`, if given, is readable, or
  /// `until_signal` when a signal has been handled. Throws `Interrupted`.
  [[nodiscard]] std::optional<Event> next(Clock::time_point deadline, int input = no_input,
                                          bool until_signal = false);
  static constexpr int no_input = -1;

  /// Whether the descriptor becomes readable before the deadline; events wait meanwhile. Throws
  /// `Interrupted`.
  [[nodiscard]] bool wait_until_readable(int input, Clock::time_point deadline) const;

  /// The messages dropped since the last call because they arrived faster than they were taken, as a text for
  /// the user; empty when there are none.
  [[nodiscard]] std::string loss_notice();

  /// False when the broker does not accept messages as fast as they are published: publish the message again
  /// later. A message published without a connection, or denied by the broker, is lost.
  bool publish(const std::string& topic, tamu::com::Message message);

  /// The broker's address for messages to the user.
  [[nodiscard]] const std::string& broker() const noexcept { return broker_; }
  /// The failure that ends a command whose first attempt to connect fails; both arguments are those of the
  /// event.
  [[nodiscard]] Failure not_reachable(
      const std::string& reason,
      tamu::com::ConnectionFailure failure = tamu::com::ConnectionFailure::no_answer) const;
  /// Whether the broker is certain to run on this machine.
  [[nodiscard]] bool is_local() const noexcept { return broker_.front() == '/'; }

 private:
  std::string broker_;
  std::string unread_file_hint_;
  std::shared_ptr<EventQueue> events_;
  std::optional<TerminationHandler> termination_;
  std::shared_ptr<tamu::com::ITransportClient> client_;
};

}  // namespace ecu::ctl
