#pragma once

#include <ecu/tamu/logging/logging.h>

namespace ecu::tamu::com::mqtt {

/// The module under which the transport logs.
inline constexpr auto mqtt_log = logging::module("tamu.com.mqtt");

}  // namespace ecu::tamu::com::mqtt
