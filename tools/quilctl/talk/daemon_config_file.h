#pragma once

#include <memory>
#include <string>

#include <ecu/tamu/config/configuration.h>

namespace ecu::ctl {

/// Reads the daemon's configuration file, with the daemon's defaults; the result holds its faults. Throws
/// `tools::InputError` when the file cannot be opened or is larger than any configuration.
[[nodiscard]] std::unique_ptr<tamu::config::Configuration> read_configuration(const std::string& path);

}  // namespace ecu::ctl
