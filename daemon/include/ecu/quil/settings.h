#pragma once

#include <optional>
#include <string_view>

#include <ecu/tamu/config/configuration.h>
#include <ecu/tamu/logging/logging.h>

/// What the daemon makes of a configuration. A library of its own, for tools that have to know it too.
namespace ecu::quil {

/// What it reads unless it is told otherwise.
inline constexpr const char* default_config_path = "/etc/morn/tolquil.conf";

/// Adds the daemon's own keys and values.
void fill_in_defaults(tamu::config::Configuration& config);

/// The log mode of that name; nothing for a name that is none.
[[nodiscard]] std::optional<tamu::logging::LogMode> log_mode_from_name(std::string_view name) noexcept;

}  // namespace ecu::quil
