#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "ports/range_crc.h"

namespace ecu::tamu::ipc {

/// The received bytes that are not used yet, and their arrival times. Only the constructor throws.
class ReceivedBytes {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  ReceivedBytes();

  /// Room to receive into, at least `max_record_size` bytes while it holds fewer bytes than that. Invalidates
  /// the result of `bytes`.
  [[nodiscard]] std::span<char> room() noexcept;

  /// Adds the first `count` bytes of `room`, which arrived at `now`.
  void add(std::size_t count, TimePoint now) noexcept;

  [[nodiscard]] std::span<const char> bytes() const noexcept { return {storage_.get() + begin_, size()}; }
  [[nodiscard]] std::size_t size() const noexcept { return end_ - begin_; }
  [[nodiscard]] bool empty() const noexcept { return begin_ == end_; }

  /// When the first byte arrived, to a millisecond. Must not be called without bytes.
  [[nodiscard]] TimePoint first_arrival() const noexcept { return arrivals_.front().at; }

  void drop(std::size_t count) noexcept;

  /// Gives the memory of earlier bytes back to the system. False, without effect, while there are bytes or
  /// when memory runs out.
  bool release_memory() noexcept;

  /// The CRC of the bytes whose CRC is `crc`, followed by a part of `bytes`.
  [[nodiscard]] std::uint32_t extend_crc(std::uint32_t crc, std::span<const char> range) noexcept {
    return crc_.extend(crc, range);
  }

 private:
  struct Arrival {
    std::uint64_t end;  // counted from the first byte ever received
    TimePoint at;
  };

  std::unique_ptr<char[]> storage_;  // not initialised: costs memory only as far as bytes arrive
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  std::uint64_t dropped_ = 0;      // since construction
  std::vector<Arrival> arrivals_;  // of the bytes held
  RangeCrc crc_;
};

}  // namespace ecu::tamu::ipc
