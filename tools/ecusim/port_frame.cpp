#include "ecusim/port_frame.h"

#include <zlib.h>

#include <algorithm>

#include <ecu/tamu/com/system_parameters.h>

namespace ecu::sim {

using tamu::com::Payload;
using tamu::ipc::IpcSignal;

namespace {

enum class Kind : std::uint8_t { record = 1, end_of_frame = 2 };

constexpr std::size_t value_length_offset = 4;

void append_u32(Payload& bytes, std::uint32_t number) {
  for (int shift = 0; shift < 32; shift += 8) {
    bytes.push_back(static_cast<std::uint8_t>(number >> shift));
  }
}

std::uint32_t u32_at(const std::vector<char>& bytes, std::size_t offset) {
  std::uint32_t number = 0;
  for (std::size_t i = 4; i-- > 0;) {
    number = number << 8U | static_cast<std::uint8_t>(bytes.at(offset + i));
  }
  return number;
}

void append(Payload& bytes, const Payload& more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

Payload encode(Kind kind, std::uint32_t id, const Payload& payload) {
  constexpr std::size_t flag_size = 1;
  constexpr std::size_t stamp_size = 8;
  Payload bytes = {0x51, 0x50, static_cast<std::uint8_t>(kind)};
  bytes.resize(bytes.size() + flag_size);
  append_u32(bytes, id);
  bytes.resize(bytes.size() + stamp_size);
  append_u32(bytes, static_cast<std::uint32_t>(payload.size()));
  const uLong header_crc = crc32_z(0, bytes.data(), bytes.size());
  // A null pointer, as an empty vector may have, makes zlib return the initial value.
  const uLong crc = payload.empty() ? header_crc : crc32_z(header_crc, payload.data(), payload.size());
  append_u32(bytes, static_cast<std::uint32_t>(crc));
  append(bytes, payload);
  return bytes;
}

Payload encode(const Parameter& parameter) {
  Payload payload;
  append_u32(payload, parameter.id);
  append_u32(payload, static_cast<std::uint32_t>(parameter.payload.size()));
  append(payload, parameter.payload);
  return encode(Kind::record, parameter.id, payload);
}

Payload torn(Payload record) {
  record.resize(record.size() / 2);
  return record;
}

Payload damaged(Payload record) {
  record.back() ^= 0xffU;
  return record;
}

}  // namespace

std::optional<Parameter> parameter_in(const IpcSignal& record) {
  const std::vector<char>& data = record.data;
  if (data.size() < tamu::com::parameter_value_offset || u32_at(data, 0) != record.id ||
      u32_at(data, value_length_offset) != data.size() - tamu::com::parameter_value_offset) {
    return std::nullopt;
  }
  return Parameter{record.id, Payload(data.begin() + tamu::com::parameter_value_offset, data.end())};
}

Payload make_frame(const std::vector<Parameter>& parameters) {
  return make_faulty_frame(parameters, {});
}

Payload make_faulty_frame(const std::vector<Parameter>& parameters, const PortsSetup& setup) {
  Payload bytes;
  if (setup.torn_record) {
    append(bytes, torn(encode(parameters.front())));
  }
  if (setup.empty_record) {
    append(bytes, encode(Kind::record, parameters.front().id, {}));
  }
  for (const Parameter& parameter : parameters) {
    append(bytes, encode(parameter));
  }
  // After the intact record: a reader that accepted this one would keep the wrong value.
  if (setup.wrong_crc) {
    append(bytes, damaged(encode(parameters.front())));
  }
  if (!setup.no_end_mark) {
    append(bytes, encode(Kind::end_of_frame, 0, {}));
  }
  return bytes;
}

}  // namespace ecu::sim
