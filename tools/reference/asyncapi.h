#pragma once

#include <string>

namespace ecu::reference {

/// The description of every topic that the daemon uses, in YAML (AsyncAPI 3.0.0, MQTT operation binding
/// 0.2.0).
[[nodiscard]] std::string asyncapi();

}  // namespace ecu::reference
