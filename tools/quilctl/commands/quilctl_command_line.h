#pragma once

#include <optional>

#include "quilctl/base/options.h"

namespace ecu::ctl {

/// Reads the command line into `options`, with defaults from the environment. Returns an exit code when the
/// program must not continue, because help was requested or the command line is wrong; the user has already
/// seen the text.
[[nodiscard]] std::optional<int> parse_command_line(int argc, const char* const* argv, Options& options);

}  // namespace ecu::ctl
