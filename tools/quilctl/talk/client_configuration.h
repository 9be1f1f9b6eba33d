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

/// The broker's address for messages to the user: HOST:PORT, or the path of its socket.
[[nodiscard]] std::string broker_address(const tamu::config::Configuration& config);

/// Where its address comes from: an option, a variable of the environment, a file, or "default".
[[nodiscard]] std::string address_origin(const BrokerOptions& options,
                                         const tamu::config::Configuration& config);

}  // namespace ecu::ctl
