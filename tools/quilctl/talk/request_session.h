#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "quilctl/base/options.h"
#include "quilctl/model/variable_rows.h"
#include "quilctl/talk/bus_connection.h"

namespace ecu::ctl {

/// The bus for a command that asks for something and ends: connects at once or fails, and has one time limit
/// for everything. Every wait throws `Interrupted`, and `Failure` when the broker is unreachable, the
/// connection is lost, or the broker refuses a subscription.
class RequestSession {
 public:
  using Clock = BusConnection::Clock;
  using Handler = std::function<void(const Event&)>;

  /// Connects, and returns once everything that the broker retains for `filters` has been passed to
  /// `on_message`. The waits pass on later messages. `default_timeout` applies unless the options have a
  /// time-out.
  RequestSession(const Options& options, const std::vector<std::string>& filters, Handler on_message,
                 std::chrono::duration<double> default_timeout = std::chrono::seconds(5));

  /// Handles messages until `is_done` returns true; returns false if the time limit or the earlier `deadline`
  /// expires first.
  [[nodiscard]] bool wait_until(const std::function<bool()>& is_done,
                                Clock::time_point deadline = Clock::time_point::max());

  /// Handles messages until all of `rows`, at least one, have values, for at most the time of --wait, if it
  /// is given.
  void await_values(const Options& options, const std::function<std::vector<VariableRow>()>& rows);

  /// Handles messages until `time`, or the time limit when that is earlier.
  void process_until(Clock::time_point time);

  /// Handles messages until the descriptor `input` is readable, or the time limit.
  void process_until_readable(int input);

  /// Sets another time limit, counted from now.
  void set_time_limit(std::chrono::duration<double> time);
  void remove_time_limit() noexcept { deadline_ = Clock::time_point::max(); }
  /// The time limit as text, with its unit.
  [[nodiscard]] std::string time_limit() const;

  BusConnection& bus() noexcept { return bus_; }

 private:
  void handle(const Event& event);

  BusConnection bus_;
  Handler on_message_;
  std::chrono::duration<double> limit_;
  Clock::time_point deadline_;
  bool up_ = false;
  bool settled_ = false;
};

}  // namespace ecu::ctl
