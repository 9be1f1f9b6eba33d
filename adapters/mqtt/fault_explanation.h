#pragma once

#include <string>

#include "mqtt/fault.h"
#include "mqtt/mqtt_settings.h"
#include "mqtt/tls_context.h"

namespace ecu::tamu::com::mqtt {

/// What is known about a connection when it fails.
struct Circumstances {
  const MqttSettings& settings;
  /// Null without TLS.
  const TlsContext* tls;
  /// The transport connection was established.
  bool reachable;
  /// The broker accepted the MQTT connection.
  bool accepted;
  /// The code of the broker's CONNACK if it refused the connection, else 0.
  int refusal;
  /// The last error that the library logged; may be empty.
  const std::string& last_error;
};

/// The most precise reason for `general`, the failure that a call of the library reported: the broker's
/// CONNACK, the result of TLS, the library's own log.
[[nodiscard]] Fault explain(Fault general, const Circumstances& known);

}  // namespace ecu::tamu::com::mqtt
