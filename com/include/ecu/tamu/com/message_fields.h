#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include <ecu/tamu/com/framing.h>

/// Reading a message field by field. A message of very many small entries would take a multiple of its size
/// if it were parsed as a whole.
namespace ecu::tamu::com {

/// The size of the first field of a serialized message, in bytes; 0 when it is malformed.
[[nodiscard]] std::size_t first_field_size(std::span<const std::uint8_t> message) noexcept;

/// Parses each field of the serialized T `body`, which has no required field, as a message of its own, and
/// calls `take` with it. False when `body` is not a T, or when `take` returns false, which ends the walk. The
/// result is that of parsing the whole, because a message in two parts, one after the other, is the same as
/// the parts merged. Throws std::bad_alloc.
template <class T, class Take>
bool for_each_field(std::span<const std::uint8_t> body, Take take) {
  T field;
  while (!body.empty()) {
    const std::size_t size = first_field_size(body);
    // protobuf's own ParseFromArray writes to standard error when a required field is missing.
    if (size == 0 || !field.ParsePartialFromArray(body.data(), static_cast<int>(size)) ||
        !field.IsInitialized() || !take(field)) {
      return false;
    }
    body = body.subspan(size);
  }
  return true;
}

/// The body of a framed message, a T without required fields, whose fields are read one by one. Refers to the
/// payload.
template <class T>
class MessageFields {
 public:
  /// Checks header and body like `unframe`.
  [[nodiscard]] static Result<MessageFields, err::PbInternalDeserializationError> of(
      std::span<const std::uint8_t> payload) {
    std::uint16_t protocol_type = 0;
    const auto body = framed_body(payload, protocol_type);
    if (!body) {
      return body.error();
    }
    if (!is_valid(*body)) {
      return refuse_body();
    }
    return MessageFields(*body);
  }

  /// Calls `take` for each field, in order, until it returns false; false then. Throws std::bad_alloc.
  template <class Take>
  bool for_each(Take take) const {
    return for_each_field<T>(body_, take);
  }

 private:
  explicit MessageFields(std::span<const std::uint8_t> body) : body_(body) {}

  static bool is_valid(std::span<const std::uint8_t> body) noexcept {
    try {
      return for_each_field<T>(body, [](const T&) { return true; });
    } catch (...) {
      return false;
    }
  }

  std::span<const std::uint8_t> body_;
};

}  // namespace ecu::tamu::com
