#pragma once

#include <google/protobuf/message_lite.h>

#include <cstdint>
#include <optional>
#include <span>

#include <ecu/tamu/com/message.h>

/// The framing of every protobuf body on the bus: an 18-byte `TXFHeader`, then the body.
namespace ecu::tamu::com {

namespace err {

enum class PbInternalDeserializationError : int {
  success = 0,
  /// The payload holds less than a header.
  too_short = 1,
  /// The first 18 bytes are no header.
  bad_header = 2,
  /// The header says protocol type 0, which means "not used".
  protocol_not_used = 3,
  /// The header says that it is not 18 bytes long.
  bad_header_length = 4,
  /// The body is longer than the payload, or is no such message.
  bad_body = 5,
};

}  // namespace err

/// The size of an encoded `TXFHeader`: two fixed64 fields, each behind a one-byte tag.
inline constexpr std::size_t txf_header_size = 18;

/// The protocol type of every message that this system sends.
inline constexpr std::uint16_t pb_protocol_type = 1;

/// The message that carries `body` behind a header of `protocol_type`, stamped with the time since boot.
/// Never throws; a failure is logged and yields nothing.
[[nodiscard]] std::optional<Message> frame(const google::protobuf::MessageLite& body,
                                           std::uint16_t protocol_type) noexcept;

/// Checks the header of `payload` and parses what it announces into `body`, which keeps its allocations.
/// Reads nothing past the payload; bytes behind the announced body are ignored. `protocol_type` takes what a
/// well-formed header says, whether or not that is accepted. A failure is logged.
[[nodiscard]] err::PbInternalDeserializationError unframe(std::span<const std::uint8_t> payload,
                                                          google::protobuf::MessageLite& body,
                                                          std::uint16_t& protocol_type);

}  // namespace ecu::tamu::com
