#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <ecu/tamu/com/message.h>
#include <ecu/tamu/result.h>

namespace ecu::tamu::rt {

/// Validity of a signal, as the real-time side sends it.
inline constexpr std::uint32_t signal_not_available = 0;
inline constexpr std::uint32_t signal_error = 1;
inline constexpr std::uint32_t signal_not_received = 2;
inline constexpr std::uint32_t signal_valid = 3;

/// One signal of a group. Lives as long as its group.
class Signal {
 public:
  explicit Signal(std::string_view name) : name_(name) {}

  /// The catalogue's name of the signal.
  [[nodiscard]] std::string_view name() const noexcept { return name_; }
  /// The raw bytes; empty when the signal carries none.
  [[nodiscard]] const std::vector<std::uint8_t>& data() const noexcept { return data_; }
  /// The physical value, scaled by the sender; 0.0 when unset.
  [[nodiscard]] double value_scaled() const noexcept { return value_; }
  /// One of the `signal_...` constants; `signal_not_available` when unset.
  [[nodiscard]] std::uint32_t status() const noexcept { return status_; }

 private:
  friend class SignalGroup;
  friend class SignalAdapter;

  std::string_view name_;
  std::vector<std::uint8_t> data_;
  double value_ = 0.0;
  std::uint32_t status_ = signal_not_available;
};

struct CatalogueEntry;

/// The signals of one message. Only signals that the catalogue names for the topic are ever in a group.
class SignalGroup {
 public:
  /// The signal of that name, or null when the group does not hold it.
  [[nodiscard]] const Signal* signal(std::string_view name) const noexcept;

  /// Sets a signal's raw bytes, and its status to `signal_valid`; false when the topic has no such signal.
  [[nodiscard]] bool set_signal_data(std::string_view name, std::span<const std::uint8_t> bytes);

 private:
  friend class SignalAdapter;

  explicit SignalGroup(const CatalogueEntry& topic);

  [[nodiscard]] std::size_t position_of(std::string_view name) const noexcept;
  Signal* set(std::string_view name);

  const CatalogueEntry* topic_;
  std::vector<std::optional<Signal>> signals_;  // in the catalogue's order; those that were received or set
};

/// Why a message could not be unpacked. 1 to 5 are the framing errors of `PbInternalDeserializationError`.
enum class UnpackError : int {
  too_short = 1,
  bad_header = 2,
  protocol_not_used = 3,
  bad_header_length = 4,
  bad_body = 5,
  unknown_topic = 6,
};

enum class GroupError : int { unknown_topic = 1, protobuf = 2 };

/// Converts messages on topics that begin with "rt/" to signal groups and back, using a catalogue of the
/// topics and their signals. Every operation may be called from any thread.
class SignalAdapter {
 public:
  [[nodiscard]] static const SignalAdapter& instance();

  /// The signals that `msg` carries on `topic`. Signals outside the catalogue are left out; of a signal given
  /// twice the last one counts. A message of up to 4 KiB that a thread unpacks several times in a row is
  /// parsed only once. Throws std::bad_alloc; the message may then be unpacked again.
  [[nodiscard]] Result<std::shared_ptr<const SignalGroup>, UnpackError> unpack(const std::string& topic,
                                                                               const com::Message& msg) const;

  /// An empty group for `topic`; fails for a topic outside the catalogue.
  [[nodiscard]] Result<SignalGroup, GroupError> create_sg(const std::string& topic) const;

  /// The message that carries the signals that were set in `group`.
  [[nodiscard]] Result<com::Message, GroupError> pack(const SignalGroup& group) const;

 private:
  SignalAdapter() = default;

  static Result<std::shared_ptr<const SignalGroup>, UnpackError> parse(const std::string& topic,
                                                                       const com::Message& msg);
};

/// The names of the signals of `topic`, in the catalogue's order; empty for a topic outside the catalogue.
[[nodiscard]] std::span<const std::string_view> catalogue_signals(std::string_view topic) noexcept;

}  // namespace ecu::tamu::rt
