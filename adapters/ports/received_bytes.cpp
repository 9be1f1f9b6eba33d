#include "ports/received_bytes.h"

#include <algorithm>

#include "ports/record_format.h"

namespace ecu::tamu::ipc {

namespace {

// The more room, the more seldom the bytes of an incomplete record are moved.
constexpr std::size_t storage_size = 4 * max_record_size;

// Arrivals closer than this are one, which bounds their number when bytes come one by one.
constexpr std::chrono::milliseconds arrival_granularity(1);

}  // namespace

ReceivedBytes::ReceivedBytes() : storage_(storage_size) {}

std::span<char> ReceivedBytes::room() {
  if (empty() || storage_.size() - end_ < max_record_size) {
    crc_.forget();
    std::ranges::copy(bytes(), storage_.begin());
    end_ = size();
    begin_ = 0;
  }
  return std::span(storage_).subspan(end_);
}

void ReceivedBytes::add(std::size_t count, TimePoint now) {
  if (count == 0) {
    return;
  }
  end_ += count;
  const std::uint64_t received = dropped_ + size();
  if (!arrivals_.empty() && now - arrivals_.back().at < arrival_granularity) {
    arrivals_.back().end = received;
  } else {
    arrivals_.push_back({received, now});
  }
}

void ReceivedBytes::drop(std::size_t count) {
  begin_ += count;
  dropped_ += count;
  while (!arrivals_.empty() && arrivals_.front().end <= dropped_) {
    arrivals_.pop_front();
  }
}

}  // namespace ecu::tamu::ipc
