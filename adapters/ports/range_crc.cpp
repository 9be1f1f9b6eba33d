#include "ports/range_crc.h"

#include <zlib.h>

namespace ecu::tamu::ipc {

namespace {

constexpr std::size_t interval = 256;
// Below this size, summing the bytes again is cheaper than combining sums.
constexpr std::size_t short_range = 2 * interval;

std::uint32_t add(std::uint32_t crc, const char* bytes, std::size_t size) noexcept {
  return static_cast<std::uint32_t>(crc32_z(crc, reinterpret_cast<const Bytef*>(bytes), size));
}

}  // namespace

RangeCrc::RangeCrc(std::size_t longest_run) {
  sums_.reserve(longest_run / interval + 1);
}

std::uint32_t RangeCrc::extend(std::uint32_t crc, std::span<const char> range) noexcept {
  if (range.size() <= short_range) {
    return add(crc, range.data(), range.size());
  }
  cover(range);
  const char* end = range.data() + range.size();
  // crc32_combine(a, b, n) is linear: it shifts a by n bytes and adds (xor) b. With a sum up to the range's
  // begin in a and the sum up to its end in b, the bytes before the range cancel out.
  const std::uint32_t shifted = crc ^ sum_up_to(range.data());
  return static_cast<std::uint32_t>(
      crc32_combine(shifted, sum_up_to(end), static_cast<z_off_t>(range.size())));
}

void RangeCrc::cover(std::span<const char> range) noexcept {
  const bool continues = !sums_.empty() && range.data() >= origin_ &&
                         static_cast<std::size_t>(range.data() - origin_) < sums_.size() * interval;
  if (!continues) {
    origin_ = range.data();
    sums_.assign(1, 0);
  }
  const std::size_t needed = static_cast<std::size_t>(range.data() + range.size() - origin_) / interval;
  while (sums_.size() <= needed) {
    sums_.push_back(add(sums_.back(), origin_ + (sums_.size() - 1) * interval, interval));
  }
}

std::uint32_t RangeCrc::sum_up_to(const char* end) const noexcept {
  const std::size_t whole = static_cast<std::size_t>(end - origin_) / interval;
  const char* rest = origin_ + whole * interval;
  return add(sums_[whole], rest, static_cast<std::size_t>(end - rest));
}

}  // namespace ecu::tamu::ipc
