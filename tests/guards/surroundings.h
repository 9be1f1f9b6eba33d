#pragma once

#include <string>
#include <utility>

#include <ecu/tamu/com/framing.h>
#include <ecu/tamu/pb/messages.pb.h>

#include "support/ports.h"
#include "system/daemon.h"

namespace tests {

/// Both queueing ports from the far side: the test writes frames, and the daemon's writes are read and
/// dropped.
class FarSide {
 public:
  FarSide() {
    to_daemon_.open();
    from_daemon_.open();
  }
  [[nodiscard]] std::string config() const {
    return "qpread = " + to_daemon_.path() + "\nqpwrite = " + from_daemon_.path() + '\n';
  }
  void write(const std::string& bytes) const { to_daemon_.write(bytes); }
  /// Makes room for the daemon's next record.
  void drain() const { (void)from_daemon_.read(); }

  /// Waits for a write of the daemon, and removes everything that it has written.
  void await_write(std::chrono::milliseconds time) const {
    pollfd port{from_daemon_.fd(), POLLIN, 0};
    ::poll(&port, 1, static_cast<int>(time.count()));
    drain();
  }

  /// A parameter as a record on the port.
  [[nodiscard]] static std::string parameter(std::uint32_t id, const std::string& value) {
    std::string payload;
    for (const std::size_t number : {std::size_t{id}, value.size()}) {
      for (unsigned shift = 0; shift < 32; shift += 8) {
        payload += static_cast<char>(number >> shift & 0xffU);
      }
    }
    return wire(id, payload + value);
  }
  void write_top_version(const std::string& value) const { write(parameter(0xa009, value) + end_mark()); }

 private:
  TempDir dir_;
  Fifo to_daemon_{dir_, "receive"};
  Fifo from_daemon_{dir_, "send"};
};

inline ecu::tamu::com::Payload framed(const google::protobuf::MessageLite& body) {
  return ecu::tamu::com::frame(body, ecu::tamu::com::pb_protocol_type).value().payload;
}

inline ecu::tamu::com::Payload hardware_variant(const std::string& value) {
  return Group().bytes("variant", value).message().payload;
}

/// Whether a message with `value` arrives on `topic` within `time`.
inline bool comes(BusClient& bus, const std::string& topic, const std::string& value,
                  std::chrono::milliseconds time = time_limit) {
  const auto carries = [&value](const BusMessage& message) {
    return message.payload.find(value) != std::string::npos;
  };
  return bus.wait_for(topic, carries, time).has_value();
}

}  // namespace tests
