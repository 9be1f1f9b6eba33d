#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <ecu/tamu/com/message.h>
#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/rt/signal_adapter.h>

#include "fuzz/fuzz.h"

/// Signal groups from a few bytes of input. They may be large, which the raw bytes of the input would not
/// allow.
namespace fuzz {

namespace topics = ecu::tamu::com::topics;

inline constexpr std::array signal_topics{topics::serial_number,
                                          topics::hardware_variant,
                                          topics::network_variant,
                                          topics::hardware_properties,
                                          topics::ignition,
                                          topics::vehicle_identification_00,
                                          topics::vehicle_identification_ee,
                                          topics::vehicle_identification_fe,
                                          topics::hypervisor_version,
                                          topics::csp_version,
                                          topics::tele_kernel_version,
                                          topics::tele_dtb_version,
                                          topics::linux_kernel_version,
                                          topics::update_kernel_version,
                                          topics::update_dtb_version};

using Bytes = std::vector<std::uint8_t>;

inline void append_varint(Bytes& bytes, std::uint64_t number) {
  for (; number >= 0x80; number >>= 7U) {
    bytes.push_back(static_cast<std::uint8_t>(number | 0x80U));
  }
  bytes.push_back(static_cast<std::uint8_t>(number));
}

template <class Text>
void append_field(Bytes& bytes, std::uint8_t tag, const Text& content) {
  bytes.push_back(tag);
  append_varint(bytes, content.size());
  bytes.insert(bytes.end(), content.begin(), content.end());
}

/// The bytes of one signal, with the fields that the input names.
inline Bytes signal_from(FuzzedDataProvider& input, std::string_view topic) {
  constexpr std::size_t max_data = 70'000;
  Bytes signal;
  const auto names = ecu::tamu::rt::catalogue_signals(topic);
  if (!names.empty() && input.ConsumeBool()) {
    append_field(signal, 0x0a, names[input.ConsumeIntegralInRange<std::size_t>(0, names.size() - 1)]);
  } else {
    append_field(signal, 0x0a, input.ConsumeRandomLengthString(32));
  }
  if (const int kind = input.ConsumeIntegralInRange(0, 3); kind == 0) {
    append_field(signal, 0x12, input.ConsumeRandomLengthString(96));
  } else if (kind == 1) {
    append_field(
        signal, 0x12,
        std::string(input.ConsumeIntegralInRange<std::size_t>(0, max_data), input.ConsumeIntegral<char>()));
  } else if (kind == 2) {
    const auto value = input.ConsumeIntegral<std::uint64_t>();
    signal.push_back(0x19);
    for (unsigned shift = 0; shift < 64; shift += 8) {
      signal.push_back(static_cast<std::uint8_t>(value >> shift));
    }
  }
  if (input.ConsumeBool()) {
    signal.push_back(0x20);
    append_varint(signal, input.ConsumeIntegral<std::uint32_t>());
  }
  return signal;
}

/// The body of a group: some signals, each up to thousands of times, or the raw bytes of the input.
inline Bytes group_from(FuzzedDataProvider& input, std::string_view topic) {
  if (input.ConsumeIntegralInRange(0, 3) == 0) {
    const std::string raw = input.ConsumeRandomLengthString(512);
    return {raw.begin(), raw.end()};
  }
  Bytes group;
  for (auto signals = input.ConsumeIntegralInRange(0, 4); signals > 0; --signals) {
    const auto copies = input.ConsumeBool() ? 1 : input.ConsumeIntegralInRange(1, 4'000);
    const Bytes signal = signal_from(input, topic);
    for (int i = 0; i < copies && group.size() < 80'000; ++i) {
      append_field(group, 0x0a, signal);
    }
  }
  return group;
}

}  // namespace fuzz
