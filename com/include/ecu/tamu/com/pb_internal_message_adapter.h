#pragma once

#include <cstdint>
#include <optional>

#include <ecu/tamu/com/framing.h>
#include <ecu/tamu/com/message_adapter.h>

namespace ecu::tamu::com {

/// Carries a protobuf body of type T in a framed message. Holds the protocol type of the message it saw last,
/// so one instance must not be shared between threads; make one for each call.
template <class T>
class PbInternalMessageAdapter final : public IMessageAdapter<T, err::PbInternalDeserializationError> {
 public:
  using Result = DeserializationResult<T, err::PbInternalDeserializationError>;

  explicit PbInternalMessageAdapter(std::uint16_t protocol_type = pb_protocol_type)
      : protocol_type_(protocol_type) {}

  [[nodiscard]] std::optional<Message> serialize(const T& body) override {
    return frame(body, protocol_type_);
  }

  Result deserialize(const Message& msg) override {
    Result result;
    result.error = unframe(msg.payload, result.body, protocol_type_);
    result.ok = result.error == err::PbInternalDeserializationError::success;
    if (!result.ok) {
      result.body.Clear();
    }
    return result;
  }

  /// The protocol type that `serialize` writes: the one given at construction, or that of the header which
  /// `deserialize` read last.
  [[nodiscard]] std::uint16_t protocol_type() const noexcept { return protocol_type_; }

 private:
  std::uint16_t protocol_type_;
};

}  // namespace ecu::tamu::com
