#pragma once

#include <ostream>
#include <string>

#include <ecu/tamu/com/message.h>

#include "values.h"

namespace ecu::ctl {

/// Everything that a message on `topic` says:
///
///   topic, kind, retained, bytes       always; kind is "unknown" for a topic that is none of the system's
///   framing                            protocol_type, header_length, body_length, send_time_ns
///   fault                              why it cannot be decoded; then payload has all of its bytes
///   fields                             of the body; those that are not set are left out
///   unknown_fields, surplus            bytes of the body that no field is known for, and bytes behind the
///   body
///
/// Bytes are as `json_value` has them. Values of the secure storage are left out unless `reveal` is set.
[[nodiscard]] Json decode(const std::string& topic, const tamu::com::Message& msg, bool reveal);

/// The same for people, on several lines; nothing is cut.
void print_decoded(std::ostream& out, const Json& decoded);

}  // namespace ecu::ctl
