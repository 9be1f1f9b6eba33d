#pragma once

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
///   unknown_fields                     bytes of the body that belong to no known field
///   surplus                            bytes after the body
///   redacted                           true in place of the payload of a secret, unless `reveal` is set
///
/// Bytes are encoded as `json_value` does. A signal's data also appears as text when it is text apart from
/// padding zeros. A signal's value that is not finite is "nan", "inf" or "-inf".
[[nodiscard]] Json decode(const std::string& topic, const tamu::com::Message& msg, bool reveal);
inline constexpr const char* redacted_key = "redacted";

}  // namespace ecu::ctl
