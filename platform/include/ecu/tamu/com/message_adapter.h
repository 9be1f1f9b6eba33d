#pragma once

#include <optional>

#include <ecu/tamu/com/message.h>

namespace ecu::tamu::com {

/// The result of extracting a body from a message. `body` is default-constructed unless `ok`.
template <class T, class Err>
struct [[nodiscard]] DeserializationResult {
  bool ok = false;
  T body{};
  Err error{};
};

/// Turns a body into a transport message and back.
template <class T, class Err>
class IMessageAdapter {
 public:
  virtual ~IMessageAdapter() = default;

  /// The message that carries `body`; empty on failure, which has been logged.
  [[nodiscard]] virtual std::optional<Message> serialize(const T& body) = 0;

  /// The body that `msg` carries, or the reason why it carries none, which has been logged.
  virtual DeserializationResult<T, Err> deserialize(const Message& msg) = 0;
};

}  // namespace ecu::tamu::com
