#include <fuzzer/FuzzedDataProvider.h>
#include <zlib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"
#include "ports/record_parser.h"

// Parses the same bytes in different pieces and compares the records with those that a plain search finds.
namespace {

using namespace ecu::tamu::ipc;
using TimePoint = RecordParser::TimePoint;

struct Found {
  std::vector<std::string> records;  // header without CRC, then payload
  std::size_t dropped = 0;           // bytes
};

constexpr std::size_t header_size = 24;

std::uint64_t number_at(std::string_view bytes, std::size_t offset) {
  return fuzz::number_of(bytes.substr(offset, 4));
}

// The size of the whole record at the beginning of `bytes`; 0 when there is none.
std::size_t whole_record_at(std::string_view bytes) {
  if (bytes.size() < header_size || !bytes.starts_with("QP") || (bytes[2] != 1 && bytes[2] != 2)) {
    return 0;
  }
  const std::uint64_t length = number_at(bytes, 16);
  const bool is_mark = bytes[2] == 2;
  if (length > 65'536 - header_size || bytes.size() - header_size < length ||
      (is_mark && bytes.substr(3, 17).find_first_not_of('\0') != std::string_view::npos)) {
    return 0;
  }
  const auto* all = reinterpret_cast<const Bytef*>(bytes.data());
  const auto crc = crc32(crc32(0, all, 20), all + header_size, static_cast<uInt>(length));
  return crc == number_at(bytes, 20) ? header_size + length : 0;
}

Found search(std::string_view bytes) {
  Found found;
  while (!bytes.empty()) {
    const std::size_t size = whole_record_at(bytes);
    if (size > 0) {
      found.records.push_back(std::string(bytes.substr(0, 16)) +
                              std::string(bytes.substr(header_size, size - header_size)));
    }
    found.dropped += size > 0 ? 0 : 1;
    bytes.remove_prefix(std::max<std::size_t>(size, 1));
  }
  return found;
}

void append_number(std::string& bytes, std::uint64_t number, int size) {
  for (; size > 0; --size, number >>= 8U) {
    bytes += static_cast<char>(number);
  }
}

// A record in the form of the plain search.
std::string noted(const IpcSignal& record) {
  std::string bytes = "QP\x01";
  bytes += static_cast<char>(record.flag);
  append_number(bytes, record.id, 4);
  append_number(bytes, record.stamp, 8);
  return bytes.append(record.data.begin(), record.data.end());
}

void take_events(RecordParser& parser, TimePoint now, Found& found) {
  for (auto event = parser.next(now); event != RecordParser::Event::none; event = parser.next(now)) {
    if (event == RecordParser::Event::damage) {
      const std::size_t dropped = parser.take_damage();
      fuzz::require(dropped > 0, "damage has a size");
      found.dropped += dropped;
    } else {
      found.records.push_back(event == RecordParser::Event::record
                                  ? noted(parser.record())
                                  : std::string("QP\x02", 3) + std::string(13, '\0'));
    }
  }
}

// Passes on `bytes` in pieces, at intervals of `step`.
Found parse(std::string_view bytes, const std::vector<std::uint8_t>& sizes, std::chrono::milliseconds step,
            bool skip_torn) {
  constexpr std::size_t max_pieces = 100;  // a search for a torn record after each takes its time
  const std::size_t min_size = bytes.size() / max_pieces + 1;
  RecordParser parser;
  Found found;
  TimePoint now{};
  for (std::size_t piece = 0; !bytes.empty(); ++piece, now += step) {
    const std::span<char> room = parser.room();
    const std::size_t wanted =
        sizes.empty() ? bytes.size() : min_size + std::size_t{sizes[piece % sizes.size()]} * 41;
    const std::size_t count = std::min({wanted, bytes.size(), room.size()});
    fuzz::require(count > 0, "there is room");
    std::copy_n(bytes.begin(), count, room.begin());
    parser.add(count, now);
    bytes.remove_prefix(count);
    take_events(parser, now, found);
    if (skip_torn && parser.seems_torn()) {
      fuzz::require(parser.skip_torn(), "what seems torn can be skipped");
      take_events(parser, now, found);
    }
  }
  take_events(parser, TimePoint::max(), found);
  fuzz::require(!parser.deadline().has_value(), "at the end nothing is held");
  return found;
}

std::string record_from(FuzzedDataProvider& input) {
  std::string record = "QP\x01";
  append_number(record, input.ConsumeIntegral<std::uint8_t>(), 1);
  append_number(record, input.ConsumeIntegral<std::uint32_t>(), 4);
  append_number(record, input.ConsumeIntegral<std::uint64_t>(), 8);
  std::string payload = input.ConsumeRandomLengthString(64);
  if (input.ConsumeBool()) {
    payload.resize(input.ConsumeIntegralInRange<std::size_t>(0, 65'512), 'Q');
  }
  append_number(record, payload.size(), 4);
  const auto* header = reinterpret_cast<const Bytef*>(record.data());
  const auto crc = crc32(crc32(0, header, 20), reinterpret_cast<const Bytef*>(payload.data()),
                         static_cast<uInt>(payload.size()));
  append_number(record, crc, 4);
  return record + payload;
}

std::string stream_from(FuzzedDataProvider& input) {
  static const std::string mark = std::string("QP\x02", 3) + std::string(17, '\0') + "\x59\x17\x12\xe4";
  std::string stream;
  for (int parts = 0; parts < 12 && input.remaining_bytes() > 0; ++parts) {
    switch (input.ConsumeIntegralInRange(0, 4)) {
      case 0:
        stream += mark;
        break;
      case 1:
        stream += input.ConsumeRandomLengthString(64);
        break;
      case 2: {
        const std::string record = record_from(input);
        stream += record.substr(0, input.ConsumeIntegralInRange<std::size_t>(0, record.size()));
        break;
      }
      default:
        stream += record_from(input);
    }
  }
  return stream;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const auto sizes = input.ConsumeBytes<std::uint8_t>(input.ConsumeIntegralInRange<std::size_t>(1, 8));
  const std::chrono::milliseconds step(input.ConsumeIntegralInRange(0, 1200));
  const std::string stream = stream_from(input);

  const Found expected = search(stream);
  for (const auto& pieces : {std::vector<std::uint8_t>(), sizes}) {
    const Found found = parse(stream, pieces, std::chrono::milliseconds(0), false);
    fuzz::require(found.records == expected.records, "the records are those of a plain search");
    fuzz::require(found.dropped == expected.dropped, "every byte is used or counted");
  }
  // As time passes, an incomplete record may be abandoned, so that others are found: no byte may be lost.
  const Found late = parse(stream, sizes, step, true);
  std::size_t used = late.dropped;
  for (const std::string& record : late.records) {
    used += record.size() + header_size - 16;
  }
  fuzz::require(used == stream.size(), "every byte is used or counted as time passes");
  return 0;
}
