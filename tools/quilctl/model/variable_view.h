#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include <ecu/tamu/com/message.h>

namespace ecu::ctl {

/// Whether a message of the daemon's presence says that it is on line.
[[nodiscard]] bool says_on_line(const tamu::com::Message& presence);

/// A variable as published last.
struct Variable {
  std::optional<std::string> value;  // none: published without a value
  std::uint64_t timestamp = 0;       // of the value, nanoseconds since the unit's boot
  bool is_faulty = false;            // a later message cannot be decoded
  std::optional<std::chrono::system_clock::time_point> since{};  // the time of the value in a fleet, if known
};

/// The variables and the presence of the daemon, as published on the bus.
class VariableView {
 public:
  enum class Change {
    none,     // same value, possibly with a newer time
    changed,  // another value, or no value any more
    other,    // not the message of a variable
    faulty,   // the message of a variable that cannot be decoded; the view keeps the last value
  };
  /// Updates the view from a message.
  Change take(const std::string& topic, const tamu::com::Message& msg);
  /// Updates a variable, or removes it.
  Change update(const std::string& name, const std::optional<Variable>& variable);
  /// Updates the presence of the daemon.
  void set_daemon_on_line(std::optional<bool> on_line) noexcept { on_line_ = on_line; }

  /// The published variables, by name.
  [[nodiscard]] const std::map<std::string, Variable, std::less<>>& all() const noexcept {
    return variables_;
  }
  /// The variable of that name; null when it has not been published.
  [[nodiscard]] const Variable* find(std::string_view name) const;
  /// How many of the catalogue have a value.
  [[nodiscard]] std::size_t with_value() const;

  /// Whether the daemon is on line; nothing when it has published no presence.
  [[nodiscard]] std::optional<bool> daemon_on_line() const noexcept { return on_line_; }

 private:
  std::map<std::string, Variable, std::less<>> variables_;
  std::optional<bool> on_line_;
};

/// The unit's clock, derived from the send times of the daemon's live messages.
class UnitClock {
 public:
  /// Sets it from the send time of a message, unless the message is retained.
  void take(const tamu::com::Message& msg);
  /// Sets it to this machine's own clock.
  void use_local_clock() noexcept { ahead_ns_ = 0; }

  [[nodiscard]] bool known() const noexcept { return ahead_ns_.has_value(); }
  /// The time since `timestamp` (of the unit), in nanoseconds; nothing while the clock is not known.
  [[nodiscard]] std::optional<std::uint64_t> age_of(std::uint64_t timestamp) const;

 private:
  std::optional<std::int64_t> ahead_ns_;  // of this machine's clock
};

}  // namespace ecu::ctl
