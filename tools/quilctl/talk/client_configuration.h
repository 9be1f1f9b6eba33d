#pragma once

#include <memory>
#include <string>

#include <ecu/tamu/config/configuration.h>

#include "quilctl/base/options.h"

namespace ecu::ctl {

/// Reads a configuration file of the daemon, with the daemon's defaults. The result also has the errors of
/// the file. Throws `tools::InputError` when it cannot be read.
[[nodiscard]] std::unique_ptr<tamu::config::Configuration> read_configuration(const std::string& path);

/// The configuration of the bus client: the options, then the configuration file, then the defaults. Throws
/// `Failure` when the configuration file has errors, `tools::InputError` when options are invalid or a file
/// cannot be read.
[[nodiscard]] std::unique_ptr<tamu::config::Configuration> client_configuration(const BrokerOptions& options);

/// What to append to the report of an unreachable broker when the configuration file of the unit would apply,
/// but cannot be read; else empty.
[[nodiscard]] std::string unread_file_hint(const BrokerOptions& options);

/// Where its address comes from: an option, a variable of the environment, a file, or "default".
[[nodiscard]] std::string address_origin(const BrokerOptions& options,
                                         const tamu::config::Configuration& config);

}  // namespace ecu::ctl
