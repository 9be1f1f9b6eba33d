#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include <ecu/tamu/com/message.h>

namespace ecu::ctl {

inline constexpr const char* all_variables = "system/var/#";
inline constexpr const char* daemon_presence = "system/presence/quil";

/// A variable as it was published last.
struct Variable {
  std::optional<std::string> value;  // none: published without one
  std::uint64_t timestamp = 0;       // of the value, nanoseconds since the unit's boot
};

/// What the bus says of the variables and of the daemon that publishes them.
class VariableView {
 public:
  enum class Change {
    none,     // the value is as before, though it may be newer
    changed,  // another value, or none any more
    other,    // no message of a variable
    faulty,   // a message of a variable that cannot be decoded; what was known stays
  };
  /// Takes over what a message says.
  Change take(const std::string& topic, const tamu::com::Message& msg);

  /// Those that were published, by name.
  [[nodiscard]] const std::map<std::string, Variable, std::less<>>& all() const noexcept {
    return variables_;
  }
  /// The variable of that name; null when it was not published.
  [[nodiscard]] const Variable* find(std::string_view name) const;
  /// How many have a value.
  [[nodiscard]] std::size_t with_value() const;

  /// Whether the daemon is on line; nothing when it does not say.
  [[nodiscard]] std::optional<bool> daemon_on_line() const noexcept { return on_line_; }

 private:
  std::map<std::string, Variable, std::less<>> variables_;
  std::optional<bool> on_line_;
};

/// The name of the variable that is published on `topic`; nothing for another topic.
[[nodiscard]] std::optional<std::string_view> variable_of(std::string_view topic);

/// The unit's clock, which only what the daemon has just sent can tell.
class UnitClock {
 public:
  /// Takes over the time at which a message was sent, unless it is a retained one.
  void take(const tamu::com::Message& msg);
  /// Sets it by this machine's own clock.
  void take_own() noexcept { ahead_ns_ = 0; }

  [[nodiscard]] bool known() const noexcept { return ahead_ns_.has_value(); }
  /// How long ago a time on the unit was, in nanoseconds; nothing while the clock is not known.
  [[nodiscard]] std::optional<std::uint64_t> age_of(std::uint64_t timestamp) const;

 private:
  std::optional<std::int64_t> ahead_ns_;  // of this machine's
};

}  // namespace ecu::ctl
