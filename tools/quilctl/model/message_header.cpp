#include "quilctl/model/message_header.h"

#include <ecu/tamu/com/framing.h>
#include <ecu/tamu/pb/messages.pb.h>

namespace ecu::ctl {

std::optional<MessageHeader> header_of(std::span<const std::uint8_t> payload) {
  using tamu::com::txf_header_size;
  tamu::pb::TXFHeader header;
  // A partial parse, because a full one logs an error when a field is missing.
  if (payload.size() < txf_header_size ||
      !header.ParsePartialFromArray(payload.data(), static_cast<int>(txf_header_size)) ||
      !header.IsInitialized()) {
    return std::nullopt;
  }
  const std::uint64_t framing = header.framing();
  return MessageHeader{static_cast<std::uint16_t>(framing), static_cast<std::uint16_t>(framing >> 16U),
                       static_cast<std::uint32_t>(framing >> 32U), header.send_time_ns()};
}

}  // namespace ecu::ctl
