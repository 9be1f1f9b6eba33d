#pragma once

#include <cstdint>
#include <optional>

#include <ecu/tamu/com/framing.h>
#include <ecu/tamu/com/message_adapter.h>

namespace ecu::tamu::com {

/// Carries a protobuf body of type T in a framed message. An instance keeps the protocol type of the message
/// that it read last, so threads must not share one; make one for each call. No operation throws.
template <class T>
class PbInternalMessageAdapter final : public IMessageAdapter<T, err::PbInternalDeserializationError> {
 public:
  using Result = DeserializationResult<T, err::PbInternalDeserializationError>;

  explicit PbInternalMessageAdapter(std::uint16_t protocol_type = pb_protocol_type)
      : protocol_type_(protocol_type) {}

  [[nodiscard]] std::optional<Message> serialize(const T& body) noexcept override {
    return frame(body, protocol_type_);
  }

  Result deserialize(const Message& msg) noexcept override {
    Result result;
    result.error = unframe(msg.payload, result.body, protocol_type_);
    result.ok = result.error == err::PbInternalDeserializationError::success;
    if (!result.ok) {
      result.body.Clear();
    }
    return result;
  }

  /// The protocol type that `serialize` writes: the one given at construction, or that of the header that
  /// `deserialize` read last.
  [[nodiscard]] std::uint16_t protocol_type() const noexcept { return protocol_type_; }

 private:
  std::uint16_t protocol_type_;
};

}  // namespace ecu::tamu::com
