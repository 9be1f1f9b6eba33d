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

/// Cuts a stream of bytes into records, and finds the next whole record after damaged bytes. Finds every
/// whole record, at the latest `record_time_limit` after the arrival of its last byte. Uses no descriptors
/// and no clock. The cost is linear in the bytes received, whatever they are. Only the constructor allocates;
/// nothing else throws.
class RecordParser {
 public:
  using TimePoint = ReceivedBytes::TimePoint;

  RecordParser();

  /// Room for the next bytes of the stream, and how many bytes were written there at `now`.
  [[nodiscard]] std::span<char> room() noexcept { return received_.room(); }
  void add(std::size_t count, TimePoint now) noexcept { received_.add(count, now); }

  /// Discards everything, for another stream.
  void clear() noexcept;

  enum class Event {
    /// Nothing more until bytes are added or `deadline` has passed.
    none,
    /// `record` is the next record.
    record,
    end_of_frame,
    /// `take_damage` has bytes that were dropped in one run before the next record, or so far.
    damage,
  };

  /// Returns the next event. Must be called until it returns `none` before more bytes are added. Abandons an
  /// incomplete record when its time is over, and always when `now` is TimePoint::max().
  [[nodiscard]] Event next(TimePoint now) noexcept;

  /// Whether a whole record lies inside the size that an incomplete one announces. Called after `next`
  /// returned `none`.
  [[nodiscard]] bool seems_torn() noexcept { return whole_record_inside().has_value(); }

  /// Abandons an incomplete record that seems torn before its time is over; true when there was one.
  [[nodiscard]] bool skip_torn() noexcept;

  /// The number of bytes dropped since the last call. Call it when `next` returns `damage`: when the damaged
  /// run is over or has lasted for `record_time_limit`, so that damage in pieces is reported once.
  [[nodiscard]] std::size_t take_damage() noexcept { return std::exchange(damage_, 0); }

  /// When `next` must be called even if no byte arrives; nothing when all bytes are used.
  [[nodiscard]] std::optional<TimePoint> deadline() const noexcept;

  /// Valid until the next call of `next` or `release_memory`.
  [[nodiscard]] const IpcSignal& record() const noexcept { return record_; }

  /// Gives the memory of earlier records back to the system. False, without effect, while bytes are left or
  /// when memory runs out.
  bool release_memory() noexcept;

 private:
  enum class Verdict { foreign, incomplete, whole };

  [[nodiscard]] Verdict judge(std::span<const char> bytes) noexcept;
  [[nodiscard]] std::size_t next_candidate(std::size_t offset) const noexcept;
  [[nodiscard]] std::optional<std::size_t> whole_record_inside() noexcept;
  void drop_damaged(std::size_t count) noexcept;
  Event deliver() noexcept;

  ReceivedBytes received_;
  IpcSignal record_;         // always has room for the largest payload
  std::size_t damage_ = 0;   // bytes dropped and not reported yet
  TimePoint damaged_since_;  // when the first of them arrived
};

}  // namespace ecu::tamu::ipc
