#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace ecu::tamu::ipc {

/// CRC-32 (IEEE 802.3) of ranges of one growing run of bytes. The cost hardly depends on a range's length:
/// each byte is summed once, however many ranges overlap there. Otherwise a run of headers that announce
/// large payloads would cost 64 KiB of summing for every few bytes.
class RangeCrc {
 public:
  /// Does not allocate after construction, and so does not throw.
  explicit RangeCrc(std::size_t longest_run);

  /// Must be called before summed bytes move or change.
  void forget() noexcept { sums_.clear(); }

  /// The CRC of the bytes whose CRC is `crc`, followed by `range`.
  [[nodiscard]] std::uint32_t extend(std::uint32_t crc, std::span<const char> range) noexcept;

 private:
  void cover(std::span<const char> range) noexcept;
  [[nodiscard]] std::uint32_t sum_up_to(const char* end) const noexcept;

  const char* origin_ = nullptr;
  // The CRC of the bytes from origin_ on, at every `interval`; the first is that of no bytes.
  std::vector<std::uint32_t> sums_;
};

}  // namespace ecu::tamu::ipc
