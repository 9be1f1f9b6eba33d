#pragma once

#include <memory>
#include <string>

#include <ecu/tamu/config/configuration.h>

#include "quilctl/base/options.h"

namespace ecu::ctl {

/// The configuration of the bus client: the options, then the configuration file, then the defaults. Throws
/// `Failure` when the options contradict each other or the configuration file has errors, `tools::InputError`
/// when a file cannot be read.
[[nodiscard]] std::unique_ptr<tamu::config::Configuration> client_configuration(const BrokerOptions& options);

/// The broker's address for messages to the user: HOST:PORT, or the path of its socket.
[[nodiscard]] std::string broker_address(const tamu::config::Configuration& config);

}  // namespace ecu::ctl
