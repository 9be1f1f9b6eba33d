#pragma once

#include <ostream>
#include <string>

#include <ecu/tamu/com/message.h>

#include "quilctl/model/values.h"

namespace ecu::ctl {

/// Everything that a message on `topic` says:
///
///   topic, kind, retained, bytes       always; kind is "unknown" for a topic that is none of the system's
///   framing                            protocol_type, header_length, body_length, send_time_ns
///   fault                              why it cannot be decoded; then payload has all of its bytes
///   fields                             of the body; those that are not set are left out
///   unknown_fields, surplus            bytes of the body that no field is known for, and bytes behind the
///   body
///   redacted                           true in place of the payload: a value of the secure storage, unless
///   `reveal` is set
///
/// Bytes are as `json_value` has them; a signal's bytes are also a text where they are one up to their
/// padding with zeros, and a signal's value that is no finite number is "nan", "inf" or "-inf".
[[nodiscard]] Json decode(const std::string& topic, const tamu::com::Message& msg, bool reveal);

/// The same for people, on several lines; nothing is cut.
void print_decoded(std::ostream& out, const Json& decoded);

}  // namespace ecu::ctl
