#include "ports/received_bytes.h"

#include <algorithm>
#include <new>
#include <utility>

#include "ports/record_format.h"

namespace ecu::tamu::ipc {

namespace {

// The more room there is, the less often the bytes of an incomplete record are moved.
constexpr std::size_t storage_size = 4 * max_record_size;

// Arrivals closer than this count as one, which bounds their number when bytes arrive one by one.
constexpr std::chrono::milliseconds arrival_granularity(1);

// More arrivals than an incomplete record can have before its time is over.
constexpr std::size_t max_arrivals = 1100;

}  // namespace

ReceivedBytes::ReceivedBytes()
    : storage_(std::make_unique_for_overwrite<char[]>(storage_size)), crc_(storage_size) {
  arrivals_.reserve(max_arrivals);
}

std::span<char> ReceivedBytes::room() noexcept {
  if (empty() || storage_size - end_ < max_record_size) {
    crc_.forget();
    std::ranges::copy(bytes(), storage_.get());
    end_ = size();
    begin_ = 0;
  }
  return {storage_.get() + end_, storage_size - end_};
}

void ReceivedBytes::add(std::size_t count, TimePoint now) noexcept {
  if (count == 0) {
    return;
  }
  end_ += count;
  const std::uint64_t received = dropped_ + size();
  const bool is_full = arrivals_.size() == max_arrivals;
  if (is_full || (!arrivals_.empty() && now - arrivals_.back().at < arrival_granularity)) {
    arrivals_.back().end = received;
  } else {
    arrivals_.push_back({received, now});
  }
}

void ReceivedBytes::drop(std::size_t count) noexcept {
  begin_ += count;
  dropped_ += count;
  arrivals_.erase(arrivals_.begin(),
                  std::ranges::find_if(arrivals_, [this](const Arrival& one) { return one.end > dropped_; }));
}

// A block of this size has pages of its own, which go when it is freed.
bool ReceivedBytes::release_memory() noexcept {
  std::unique_ptr<char[]> fresh(empty() ? new (std::nothrow) char[storage_size] : nullptr);
  if (!fresh) {
    return false;
  }
  storage_ = std::move(fresh);
  crc_.forget();
  begin_ = end_ = 0;
  return true;
}

}  // namespace ecu::tamu::ipc
