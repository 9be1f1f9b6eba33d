#pragma once

#include <optional>

#include "quilctl/base/options.h"

namespace ecu::ctl {

/// Reads the command line, and for what it leaves open the environment, into `options`. When the program is
/// not to go on (help was asked for, or the command line is wrong), says so to the user and returns the exit
/// code.
[[nodiscard]] std::optional<int> parse_command_line(int argc, const char* const* argv, Options& options);

}  // namespace ecu::ctl
