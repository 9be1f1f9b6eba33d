#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <utility>

#include <ecu/tamu/ipc/ipc_signal.h>

#include "ports/received_bytes.h"

namespace ecu::tamu::ipc {

/// How long a record may take from its first byte to its last.
inline constexpr std::chrono::seconds record_time_limit(1);

/// Cuts a stream of bytes into records and finds the next whole record behind damaged bytes. Every record
/// that is whole is found, at the latest `record_time_limit` after its last byte came. Knows no descriptors
/// and no clock; the cost is linear in the bytes received, whatever they are.
class RecordParser {
 public:
  using TimePoint = ReceivedBytes::TimePoint;

  /// Room for the next bytes of the stream, and how many of it were filled at `now`.
  [[nodiscard]] std::span<char> room() { return received_.room(); }
  void add(std::size_t count, TimePoint now) { received_.add(count, now); }

  enum class Event {
    /// Nothing more until bytes or `deadline` come.
    none,
    /// `record` is the next record.
    record,
    end_of_frame,
    /// `take_damage` has bytes that were dropped in one run before the next record, or so far.
    damage,
  };

  /// Moves on to what is to be told next. Has to be called until it says `none` before more bytes are added.
  /// What is incomplete at TimePoint::max() is given up, however young it is.
  [[nodiscard]] Event next(TimePoint now);

  /// Whether a whole record stands inside of what an incomplete one lays claim to. Called when `next` says
  /// `none`.
  [[nodiscard]] bool seems_torn() { return whole_record_inside().has_value(); }

  /// Gives the incomplete record up before its time when it seems torn; whether it does.
  [[nodiscard]] bool skip_torn();

  /// The number of bytes dropped since the last call. `next` says when to ask: where the damaged run is over
  /// or has lasted for `record_time_limit`, so that damage that comes in pieces is told once.
  [[nodiscard]] std::size_t take_damage() noexcept { return std::exchange(damage_, 0); }

  /// When `next` has to be called even though no byte came; nothing when all bytes are used.
  [[nodiscard]] std::optional<TimePoint> deadline() const noexcept;

  /// Holds until the next call of `next`.
  [[nodiscard]] const IpcSignal& record() const noexcept { return record_; }

 private:
  enum class Verdict { foreign, incomplete, whole };

  [[nodiscard]] Verdict judge(std::span<const char> bytes);
  [[nodiscard]] std::size_t next_candidate(std::size_t offset) const noexcept;
  [[nodiscard]] std::optional<std::size_t> whole_record_inside();
  void drop_damaged(std::size_t count);
  Event deliver();

  ReceivedBytes received_;
  IpcSignal record_;
  std::size_t damage_ = 0;   // bytes dropped and not taken yet
  TimePoint damaged_since_;  // when the first of them came
};

}  // namespace ecu::tamu::ipc
