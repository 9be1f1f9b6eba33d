#pragma once

#include <ecu/tamu/com/framing.h>

namespace ecu::tamu::com {

/// Like `unframe`, but logs nothing, for a caller that limits its own lines.
[[nodiscard]] err::PbInternalDeserializationError unframe_quietly(std::span<const std::uint8_t> payload,
                                                                  google::protobuf::MessageLite& body,
                                                                  std::uint16_t& protocol_type) noexcept;

}  // namespace ecu::tamu::com
