#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace ecu::tamu::com {

using Payload = std::vector<std::uint8_t>;

/// A message of the bus, as the transport takes or delivers it.
struct Message {
  /// Published: MQTT quality of service 1 instead of 0. Received: delivered with quality of service 1 or 2.
  bool acknowledged = false;
  /// Not transmitted; 0 in a received message.
  std::uint8_t header = 0;
  /// Received: time of reception, nanoseconds since boot. Not transmitted.
  std::uint64_t timestamp = 0;
  Payload payload;
  /// The retain flag (MQTT 3.1.1, 3.3.1.3) of the publication or of the delivery.
  bool retained = false;

  [[nodiscard]] std::uint64_t get_timestamp() const noexcept { return timestamp; }
};

/// A message that carries `payload` with all flags off.
[[nodiscard]] inline Message make_message(std::uint64_t timestamp, Payload payload) {
  Message message;
  message.timestamp = timestamp;
  message.payload = std::move(payload);
  return message;
}

}  // namespace ecu::tamu::com
