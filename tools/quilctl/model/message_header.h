#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace ecu::ctl {

/// The contents of the header of a framed message.
struct MessageHeader {
  std::uint16_t protocol_type = 0;
  std::uint16_t header_length = 0;
  std::uint32_t body_length = 0;
  std::uint64_t send_time_ns = 0;  // since the sender's boot
};

/// The header at the beginning of `payload`; nothing when it is too short or malformed.
[[nodiscard]] std::optional<MessageHeader> header_of(std::span<const std::uint8_t> payload);

}  // namespace ecu::ctl
