#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace ecu::tamu::ipc {

/// CRC-32 (IEEE 802.3) of ranges of one growing run of bytes, at a cost that hardly depends on a range's
/// length: each byte is summed up once, however many ranges overlap there. Otherwise bytes full of headers
/// that announce large payloads would cost 64 KiB of summing up for every few bytes.
class RangeCrc {
 public:
  /// Never allocates after construction, and so throws nothing.
  explicit RangeCrc(std::size_t longest_run);

  /// Must be called before bytes that were summed up move or change.
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
