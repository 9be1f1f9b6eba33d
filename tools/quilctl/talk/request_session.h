#pragma once

#include <chrono>
#include <functional>
#include <initializer_list>
#include <string>

#include "quilctl/base/options.h"
#include "quilctl/talk/bus_connection.h"

namespace ecu::ctl {

/// The bus for a command that asks for something and ends: connects at once or fails, and has one time limit
/// for all. Every wait throws `Failure` when the broker cannot be reached, is lost, or refuses a
/// subscription, and `Interrupted`.
class Conversation {
 public:
  using Clock = Bus::Clock;
  using Handler = std::function<void(const Event&)>;

  /// Connects and returns when all that the broker retains for `filters` has been handed to `on_message`, as
  /// everything that comes later is from inside the waits. `usual_timeout` holds unless the options say
  /// otherwise.
  Conversation(const Options& options, std::initializer_list<std::string> filters, Handler on_message,
               std::chrono::duration<double> usual_timeout = std::chrono::seconds(5));

  /// Takes messages until `is_done` holds; false when it does not by the time limit, or by an earlier
  /// `deadline`.
  [[nodiscard]] bool wait_until(const std::function<bool()>& is_done,
                                Clock::time_point deadline = Clock::time_point::max());

  /// Takes messages until `time`, or the time limit if that is earlier.
  void listen_until(Clock::time_point time);

  /// Takes messages until the descriptor `input` can be read from without waiting, or the time limit.
  void listen_until_readable(int input);

  /// Gives the rest another time limit, from now.
  void allow(std::chrono::duration<double> time);
  void allow_any_time() noexcept { deadline_ = Clock::time_point::max(); }
  /// The time limit as people write it.
  [[nodiscard]] std::string time_limit() const;

  Bus& bus() noexcept { return bus_; }

 private:
  void settle();
  void handle(const Event& event);

  Bus bus_;
  Handler on_message_;
  std::chrono::duration<double> limit_;
  Clock::time_point deadline_;
  bool up_ = false;
  bool settled_ = false;
};

}  // namespace ecu::ctl
