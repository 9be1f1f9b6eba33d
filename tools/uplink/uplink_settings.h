#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <ecu/tamu/config/configuration.h>

#include "uplink/change_filter.h"

namespace ecu::uplink {

/// What the configuration file says; see tolquil-uplink.conf(5).
struct UplinkSettings {
  std::unique_ptr<tamu::config::Configuration> bus;    ///< of the client of the unit's bus
  std::unique_ptr<tamu::config::Configuration> fleet;  ///< of the client of the fleet's broker
  std::chrono::seconds keepalive{};                    ///< of that client
  std::chrono::seconds reconnect_spread{};
  std::chrono::seconds repeat_after{};  ///< 0: not again
  std::string prefix;
  std::string unit;                    ///< empty: the value of the variable `unit_variable`
  std::string unit_variable;           ///< empty if the unit's name is configured
  std::vector<std::string> variables;  ///< patterns (fnmatch) of the variables to send
  ChangeFilter::Limits limits;
};

/// Reads and checks the file. Nothing when it is faulty; each fault is one ERROR line.
[[nodiscard]] std::optional<UplinkSettings> read_settings(const std::string& path);

}  // namespace ecu::uplink
