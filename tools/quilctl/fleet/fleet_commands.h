#pragma once

#include "quilctl/base/options.h"

/// The commands with --fleet, except `watch`, which is the same for a unit and a fleet; see
/// `CommandFunction`.
namespace ecu::ctl::fleet {

[[nodiscard]] ExitCode list(const Options& options);
[[nodiscard]] ExitCode get(const Options& options);
[[nodiscard]] ExitCode status(const Options& options);
[[nodiscard]] ExitCode retire(const Options& options);

}  // namespace ecu::ctl::fleet
