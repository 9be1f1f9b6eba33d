#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace ecu::uplink {

/// Time since the unit's boot (CLOCK_BOOTTIME), which no change of the wall clock affects.
using BootTime = std::chrono::nanoseconds;

/// A time of day in UTC, also after 2038 on 32 bits.
using WallTime = std::chrono::system_clock::time_point;

/// Decides which values are sent to the fleet, and when: a value that changed, at most once a minimum
/// interval, and every value once a refresh. Its memory is bounded. Not thread-safe.
class ChangeFilter {
 public:
  struct Limits {
    std::chrono::seconds min_interval{};  ///< between two values of one key; the last one is sent
    std::chrono::seconds refresh{};       ///< from a value to its repetition; 0: never repeated
    std::size_t max_keys = 256;           ///< including the reserved ones, which must fit
  };

  struct Value {
    std::string text;
    BootTime since{};  ///< when the source published it first

    friend bool operator==(const Value&, const Value&) = default;
  };

  /// What a message says besides its value.
  struct Context {
    std::optional<WallTime> booted;     ///< the unit's boot by its wall clock; nothing while that is not set
    std::optional<std::string> daemon;  ///< the daemon's presence; nothing while it is unknown
  };

  using Send = std::function<void(const std::string& key, const Value& value)>;
  using Test = std::function<bool(const std::string& key, const Context& context)>;

  /// There is always room for the keys of `reserved`.
  explicit ChangeFilter(const Limits& limits, std::set<std::string> reserved = {})
      : limits_(limits),
        reserved_(std::move(reserved)),
        room_for_others_(limits.max_keys - reserved_.size()) {}

  /// Takes the value that a source has published. `published` counts only if the value differs from the last
  /// one. False for one key too many, which is not taken.
  bool take(const std::string& key, const std::string& text, BootTime published);

  /// Makes every value due at once, as if none had been sent.
  void send_all_again();

  /// The same for each value for which `is_outdated` holds with the context in which it was sent.
  void send_again(const Test& is_outdated);

  /// Calls `send` for each value that is due. It counts as sent in `context`, even if `send` throws.
  void send_due(BootTime now, const Context& context, const Send& send);

  /// Calls `visit` with the key of each value that was sent.
  void for_each_sent(const std::function<void(const std::string& key)>& visit) const;

  /// When the next value is due; BootTime::max() if none is without a further `take`.
  [[nodiscard]] BootTime next_due() const;

 private:
  struct Entry {
    Value value;
    std::optional<Value> sent{};
    bool is_changed = true;  // the value, or only its time, differs from what was sent
    BootTime sent_at{};
    Context sent_in{};
  };

  [[nodiscard]] BootTime due(const Entry& entry) const;

  Limits limits_;
  std::set<std::string> reserved_;
  std::size_t room_for_others_;
  std::map<std::string, Entry> entries_;
};

}  // namespace ecu::uplink
