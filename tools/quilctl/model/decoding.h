#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <span>
#include <string>

#include <ecu/tamu/com/message.h>

#include "quilctl/model/values.h"

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

/// The complete contents of a message on `topic`:
///
///   topic, kind, retained, bytes       always; kind is "unknown" for a topic that the system does not use
///   framing                            protocol_type, header_length, body_length, send_time_ns
///   fault                              why it cannot be decoded; payload then holds all bytes
///   fields                             of the body, without those that are not set
///   unknown_fields, surplus            bytes of unknown fields, bytes after the body
///   redacted                           true instead of the payload of a secret, unless `reveal`
///
/// Bytes are encoded as `json_value` does. A signal's data also appears as text when it is text apart from
/// padding zeros. A signal's value that is not finite is "nan", "inf" or "-inf".
[[nodiscard]] Json decode(const std::string& topic, const tamu::com::Message& msg, bool reveal);
inline constexpr const char* redacted_key = "redacted";

/// What the user reads about a message on `topic` that a command needs and cannot decode.
[[nodiscard]] std::string not_decodable(const std::string& topic);

/// Prints what `decode` returned on several lines, without truncating anything.
void print_decoded(std::ostream& out, const Json& decoded);

}  // namespace ecu::ctl
