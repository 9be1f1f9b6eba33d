// How the stream is cut. The parser always judges the first byte that it holds:
//  - a whole record or mark (magic, length and CRC fit) is delivered;
//  - what can still become a record is left to wait for its rest, for `record_time_limit` from the arrival of
//    its first byte. Several arrival times are kept, because a record that ends the wait of another one has
//    its own time;
//  - anything else is damage: the bytes up to the next first magic byte are dropped, and that is judged.
// Only the bytes before the candidate are dropped, never what it announces: a torn record announces bytes
// that are in fact the records after it. So each offset is judged, and hostile bytes make each of them a
// candidate with a large payload; `RangeCrc` keeps the cost of all these checks linear.
//
// Relies on `ReceivedBytes` for room for a whole record, so that an incomplete one can always be completed,
// and on the caller to call `next` at `deadline`.

#include "ports/record_parser.h"

#include <zlib.h>

#include <algorithm>
#include <new>
#include <string_view>
#include <vector>

#include "ports/record_format.h"

namespace ecu::tamu::ipc {

namespace {

// Slightly more than needed: a block of this size has pages of its own, which go when it is freed.
std::vector<char> room_for_payload() {
  std::vector<char> room;
  room.reserve(max_record_size);
  return room;
}

}  // namespace

RecordParser::RecordParser() {
  record_.data = room_for_payload();
}

bool RecordParser::release_memory() noexcept {
  if (!received_.empty()) {
    return false;
  }
  try {
    std::vector<char> fresh = room_for_payload();
    return received_.release_memory() && (record_.data.swap(fresh), true);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void RecordParser::clear() noexcept {
  received_.drop(received_.size());
  damage_ = 0;
}

RecordParser::Event RecordParser::next(TimePoint now) noexcept {
  const auto in_time = [now](TimePoint since) { return now < since + record_time_limit; };
  while (!received_.empty()) {
    const Verdict front = judge(received_.bytes());
    if (front == Verdict::whole) {
      return damage_ > 0 ? Event::damage : deliver();
    }
    if (front == Verdict::incomplete && in_time(received_.first_arrival())) {
      break;
    }
    drop_damaged(next_candidate(1));
  }
  return damage_ == 0 || in_time(damaged_since_) ? Event::none : Event::damage;
}

bool RecordParser::skip_torn() noexcept {
  const std::optional<std::size_t> offset = whole_record_inside();
  if (offset) {
    drop_damaged(*offset);
  }
  return offset.has_value();
}

std::optional<std::size_t> RecordParser::whole_record_inside() noexcept {
  for (std::size_t offset = next_candidate(1); offset < received_.size();
       offset = next_candidate(offset + 1)) {
    if (judge(received_.bytes().subspan(offset)) == Verdict::whole) {
      return offset;
    }
  }
  return std::nullopt;
}

std::optional<RecordParser::TimePoint> RecordParser::deadline() const noexcept {
  if (damage_ > 0) {
    return damaged_since_ + record_time_limit;
  }
  return received_.empty() ? std::nullopt : std::optional(received_.first_arrival() + record_time_limit);
}

RecordParser::Verdict RecordParser::judge(std::span<const char> bytes) noexcept {
  const std::optional<std::size_t> size = announced_size(bytes);
  if (!size) {
    return Verdict::foreign;
  }
  if (bytes.size() < *size) {
    return Verdict::incomplete;
  }
  const auto header = static_cast<std::uint32_t>(
      crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(crc_offset)));
  const std::span<const char> payload = bytes.first(*size).subspan(Record::header_size);
  return received_.extend_crc(header, payload) == announced_crc(bytes) ? Verdict::whole : Verdict::foreign;
}

// The next offset at which a record may begin; the number of bytes when there is none.
std::size_t RecordParser::next_candidate(std::size_t offset) const noexcept {
  const std::string_view bytes(received_.bytes().data(), received_.size());
  return std::min(bytes.find(first_magic_byte, offset), bytes.size());
}

void RecordParser::drop_damaged(std::size_t count) noexcept {
  if (damage_ == 0) {
    damaged_since_ = received_.first_arrival();
  }
  damage_ += count;
  received_.drop(count);
}

RecordParser::Event RecordParser::deliver() noexcept {
  const std::span<const char> bytes = received_.bytes();
  const std::span<const char> record = bytes.first(*announced_size(bytes));
  const bool is_mark = is_end_of_frame(record);
  if (!is_mark) {
    decode_record(record, record_);
  }
  received_.drop(record.size());
  return is_mark ? Event::end_of_frame : Event::record;
}

}  // namespace ecu::tamu::ipc
