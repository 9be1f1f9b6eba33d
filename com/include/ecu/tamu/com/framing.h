#pragma once

#include <google/protobuf/message_lite.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>

#include <ecu/tamu/com/message.h>
#include <ecu/tamu/result.h>

/// The framing of every protobuf body on the bus: an 18-byte `TXFHeader`, then the body.
namespace ecu::tamu::com {

namespace err {

enum class PbInternalDeserializationError : int {
  success = 0,
  /// The payload is shorter than a header.
  too_short = 1,
  /// The first 18 bytes are not a header.
  bad_header = 2,
  /// The header's protocol type is 0, which means "not used".
  protocol_not_used = 3,
  /// The header's length field is not 18.
  bad_header_length = 4,
  /// The body is longer than the payload, or cannot be parsed.
  bad_body = 5,
};

}  // namespace err

/// The size of an encoded `TXFHeader`: two fixed64 fields, each after a one-byte tag.
inline constexpr std::size_t txf_header_size = 18;

/// The protocol type of every message that this system sends.
inline constexpr std::uint16_t pb_protocol_type = 1;

/// The message that carries `body` after a header of `protocol_type`, stamped with the time since boot. Logs
/// one line and returns std::nullopt if `body` cannot be serialized.
[[nodiscard]] std::optional<Message> frame(const google::protobuf::MessageLite& body,
                                           std::uint16_t protocol_type) noexcept;

/// Calls its argument with each part of a body, in order, and with the same parts each time.
using BodyParts = std::function<void(const std::function<void(const google::protobuf::MessageLite&)>& take)>;

/// Like `frame`, for a body in parts, which a receiver reads as one message that holds the fields of them
/// all. Only one part at a time needs memory beside the result.
[[nodiscard]] std::optional<Message> frame_parts(const BodyParts& parts,
                                                 std::uint16_t protocol_type) noexcept;

/// Checks the header of `payload` and returns the bytes of the body that it announces, which are part of
/// `payload`; bytes after the body are ignored. Sets `protocol_type` to that of the header if the header can
/// be decoded, even when the message is refused. A failure is logged.
[[nodiscard]] Result<std::span<const std::uint8_t>, err::PbInternalDeserializationError> framed_body(
    std::span<const std::uint8_t> payload, std::uint16_t& protocol_type) noexcept;

/// Logs that a body cannot be parsed, and returns the error that says so.
err::PbInternalDeserializationError refuse_body() noexcept;

/// Parses the body that `payload` announces into `body`, which is unspecified after a failure. Otherwise like
/// `framed_body`. A body for which memory runs out cannot be parsed.
[[nodiscard]] err::PbInternalDeserializationError unframe(std::span<const std::uint8_t> payload,
                                                          google::protobuf::MessageLite& body,
                                                          std::uint16_t& protocol_type) noexcept;

/// Like `unframe`, but logs nothing, for a caller that limits its own lines.
[[nodiscard]] err::PbInternalDeserializationError unframe_quietly(std::span<const std::uint8_t> payload,
                                                                  google::protobuf::MessageLite& body,
                                                                  std::uint16_t& protocol_type) noexcept;

}  // namespace ecu::tamu::com
