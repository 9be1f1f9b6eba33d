#pragma once

#include <memory>
#include <string>

#include <ecu/tamu/config/configuration.h>

#include "quilctl/base/failure.h"

namespace ecu::ctl {

/// The daemon's configuration file with the daemon's defaults, faults and all. Throws `Failure` with
/// `unreadable` when it cannot be opened or is longer than any configuration.
[[nodiscard]] std::unique_ptr<tamu::config::Configuration> read_configuration(const std::string& path,
                                                                              ExitCode unreadable);

}  // namespace ecu::ctl
