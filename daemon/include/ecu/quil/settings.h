#pragma once

#include <optional>
#include <string_view>

#include <ecu/tamu/config/configuration.h>
#include <ecu/tamu/logging/logging.h>

/// How the daemon interprets a configuration. A library of its own, because tools need it, too.
namespace ecu::quil {

/// The file that the daemon reads unless the command line names another.
inline constexpr const char* default_config_path = "/etc/morn/tolquil.conf";

/// Adds the daemon's own keys and values.
void fill_in_defaults(tamu::config::Configuration& config);

/// The log mode of that name; nothing for an unknown name.
[[nodiscard]] std::optional<tamu::logging::LogMode> log_mode_from_name(std::string_view name) noexcept;

}  // namespace ecu::quil
