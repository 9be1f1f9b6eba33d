#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "quilctl/base/options.h"
#include "quilctl/talk/bus_connection.h"
#include "quilctl/talk/variable_source.h"

namespace ecu::ctl {

/// The bus for a command that runs until it is interrupted. The broker must be reachable at the start; when
/// the connection is lost later, the session waits until it is back.
class MonitorSession {
 public:
  using Clock = BusConnection::Clock;

  /// See `BusConnection`. What `source` has missed comes before the events of the bus. The options and the
  /// source must outlive the session.
  MonitorSession(const Options& options, const std::vector<std::string>& filters, int max_qos = 0,
                 VariableSource* source = nullptr);

  /// The next event; nothing at `wake` or when the descriptor `input` is readable, and sometimes before.
  /// Throws `Interrupted`, and `Failure` when the broker is unreachable at the start or refuses a
  /// subscription.
  [[nodiscard]] std::optional<Event> next(Clock::time_point wake = Clock::time_point::max(),
                                          int input = BusConnection::no_input);

  /// Passes on each event, and prints the notices, until --count, --timeout or a signal, the normal way to
  /// stop, ends the command or output fails. `show` returns whether the event counts. Throws `Failure` as
  /// `next` does, and when the time has passed before --count events.
  void run(const std::function<bool(const Event&)>& show);
  /// Whether output works, and neither --count nor --timeout ends the command. `shown` events have counted.
  [[nodiscard]] bool goes_on(unsigned shown) const;
  /// The time at which --timeout ends the command.
  [[nodiscard]] Clock::time_point end() const;

  [[nodiscard]] const BusConnection& bus() const noexcept { return bus_; }

  /// Whether there has been a connection.
  [[nodiscard]] bool was_up() const noexcept { return was_up_; }

  /// The report of the last call of `next` about the connection, the daemon or lost messages; may be empty.
  /// Lost messages are reported once a second.
  [[nodiscard]] const std::string& notice() const noexcept { return notice_; }

  /// The lost messages that have not been reported yet, for the end; may be empty.
  [[nodiscard]] std::string loss_notice();

 private:
  [[nodiscard]] std::optional<Event> next_event(Clock::time_point wake, int input);
  [[nodiscard]] std::string notice_of(const Event& event);
  [[nodiscard]] std::string presence_notice(const Event& event);

  const Options& options_;
  BusConnection bus_;
  VariableSource* const source_;  // may be null
  const Clock::time_point first_deadline_;
  bool was_up_ = false;
  Clock::time_point loss_due_;          // of the next report of lost messages
  std::string reason_;                  // the reported reason for the loss of the connection
  std::optional<bool> daemon_on_line_;  // none: no presence received
  std::string notice_;
};

}  // namespace ecu::ctl
