#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/pb/messages.pb.h>

namespace tests {

/// The message with this body, received or sent at `timestamp`.
inline ecu::tamu::com::Message framed(const google::protobuf::MessageLite& body,
                                      std::uint64_t timestamp = 0) {
  auto message = ecu::tamu::com::frame(body, ecu::tamu::com::pb_protocol_type).value();
  message.timestamp = timestamp;
  return message;
}

/// A variable as the daemon publishes it.
inline ecu::tamu::com::Message variable_message(const std::string& value, std::uint64_t stamp = 7) {
  ecu::tamu::pb::EcuVariable body;
  body.set_value(value);
  body.set_timestamp(stamp);
  return framed(body);
}

/// A request for the parameters with these identifiers.
inline ecu::tamu::com::Message request_for(std::initializer_list<const char*> identifiers) {
  ecu::tamu::pb::EcuVariableReq body;
  body.mutable_name()->Assign(identifiers.begin(), identifiers.end());
  return framed(body);
}

/// A group of the real-time side, built signal by signal: `Group().bytes("data", "...").message(ts)`.
class Group {
 public:
  Group& bytes(std::string_view name, std::string_view data) {
    add(name).set_data(std::string(data));
    return *this;
  }
  Group& value(std::string_view name, double value) {
    add(name).set_value(value);
    return *this;
  }
  Group& status(std::uint32_t status) {
    group_.mutable_signal(group_.signal_size() - 1)->set_status(status);
    return *this;
  }
  [[nodiscard]] ecu::tamu::com::Message message(std::uint64_t timestamp = 0) const {
    return framed(group_, timestamp);
  }

 private:
  ecu::tamu::pb::Signal& add(std::string_view name) {
    ecu::tamu::pb::Signal& signal = *group_.add_signal();
    signal.set_name(std::string(name));
    return signal;
  }

  ecu::tamu::pb::SignalGroup group_;
};

/// A message whose payload is `text`, unchanged.
inline ecu::tamu::com::Message raw_message(std::string_view text, bool acknowledged = false,
                                           bool retained = false) {
  auto message = ecu::tamu::com::make_message(0, {text.begin(), text.end()});
  message.acknowledged = acknowledged;
  message.retained = retained;
  return message;
}

/// `body` after a header written here by hand: protocol type 1, 18 bytes long, sent at 1 ns.
inline ecu::tamu::com::Message framed_by_hand(std::string_view body) {
  const auto byte = [&body](unsigned shift) { return static_cast<char>(body.size() >> shift); };
  std::string text("\x09\x01\0\x12\0", 5);
  text += {byte(0), byte(8), byte(16), byte(24)};
  text.append("\x11\x01\0\0\0\0\0\0\0", 9).append(body);
  return raw_message(text);
}

/// The body of a message, and the part of its header that does not depend on the time.
inline std::string body_bytes(const ecu::tamu::com::Message& message) {
  return {message.payload.begin() + 18, message.payload.end()};
}
inline std::string header_start(const ecu::tamu::com::Message& message) {
  return {message.payload.begin(), message.payload.begin() + 10};
}

/// The variable that a published message carries.
inline ecu::tamu::pb::EcuVariable variable_in(const ecu::tamu::com::Message& message) {
  return ecu::tamu::com::PbInternalMessageAdapter<ecu::tamu::pb::EcuVariable>().deserialize(message).body;
}

}  // namespace tests
