#include "ports/record_format.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <concepts>

namespace ecu::tamu::ipc {

namespace {

constexpr char second_magic_byte = 0x50;
constexpr char kind_record = 1;
constexpr char kind_end_of_frame = 2;

constexpr std::size_t kind_offset = 2;
constexpr std::size_t flag_offset = 3;
constexpr std::size_t id_offset = 4;
constexpr std::size_t stamp_offset = 8;
constexpr std::size_t length_offset = 16;

template <std::unsigned_integral T>
void store(std::span<char> bytes, std::size_t offset, T number) noexcept {
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    bytes[offset + i] = static_cast<char>(static_cast<std::uint8_t>(number >> (8 * i)));
  }
}

template <std::unsigned_integral T>
T load(std::span<const char> bytes, std::size_t offset) noexcept {
  T number = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    number =
        static_cast<T>(number | static_cast<T>(T{static_cast<std::uint8_t>(bytes[offset + i])} << (8 * i)));
  }
  return number;
}

std::uint32_t crc_of(std::span<const char> record) noexcept {
  const auto* bytes = reinterpret_cast<const Bytef*>(record.data());
  const uLong header = crc32(0, bytes, crc_offset);
  return static_cast<std::uint32_t>(
      crc32_z(header, bytes + Record::header_size, record.size() - Record::header_size));
}

void store_header(std::span<char> record, char kind, const IpcSignal& signal) noexcept {
  record[0] = first_magic_byte;
  record[1] = second_magic_byte;
  record[kind_offset] = kind;
  store(record, flag_offset, signal.flag);
  store(record, id_offset, signal.id);
  store(record, stamp_offset, signal.stamp);
  store(record, length_offset, static_cast<std::uint32_t>(signal.data.size()));
  store(record, crc_offset, crc_of(record));
}

using Mark = std::array<char, Record::header_size>;

const Mark& mark() noexcept {
  static const Mark bytes = [] {
    Mark made{};
    store_header(made, kind_end_of_frame, {});
    return made;
  }();
  return bytes;
}

}  // namespace

void encode_record(const IpcSignal& signal, std::vector<char>& bytes) {
  bytes.resize(Record::header_size);
  bytes.insert(bytes.end(), signal.data.begin(), signal.data.end());
  store_header(bytes, kind_record, signal);
}

std::span<const char> end_of_frame() noexcept {
  return mark();
}

std::optional<std::size_t> announced_size(std::span<const char> bytes) noexcept {
  const std::span<const char> header = bytes.first(std::min(bytes.size(), Record::header_size));
  if (header.size() > kind_offset && header[kind_offset] == kind_end_of_frame) {
    return std::ranges::equal(header, std::span(mark()).first(header.size()))
               ? std::optional(Record::header_size)
               : std::nullopt;
  }
  constexpr std::array<char, 3> beginning = {first_magic_byte, second_magic_byte, kind_record};
  const std::size_t known = std::min(header.size(), beginning.size());
  if (!std::ranges::equal(header.first(known), std::span(beginning).first(known))) {
    return std::nullopt;
  }
  if (header.size() < crc_offset) {
    return Record::header_size;
  }
  const auto length = load<std::uint32_t>(header, length_offset);
  return length <= Record::max_payload_size ? std::optional(Record::header_size + length) : std::nullopt;
}

std::uint32_t announced_crc(std::span<const char> record) noexcept {
  return load<std::uint32_t>(record, crc_offset);
}

bool is_end_of_frame(std::span<const char> record) noexcept {
  return record[kind_offset] == kind_end_of_frame;
}

void decode_record(std::span<const char> record, IpcSignal& signal) {
  signal.id = load<std::uint32_t>(record, id_offset);
  signal.flag = load<std::uint8_t>(record, flag_offset);
  signal.stamp = load<std::uint64_t>(record, stamp_offset);
  const std::span<const char> payload = record.subspan(Record::header_size);
  signal.data.assign(payload.begin(), payload.end());
}

}  // namespace ecu::tamu::ipc
