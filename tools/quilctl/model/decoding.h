#pragma once

#include <ostream>
#include <string>

#include <ecu/tamu/com/message.h>

#include "quilctl/model/values.h"

namespace ecu::ctl {

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
