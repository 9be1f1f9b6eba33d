#pragma once

#include <CLI/CLI.hpp>
#include <span>

namespace ecu::ctl {

/// Tells the user why `app` could not parse the command line `arguments`, and how to see the usage.
void report_usage_error(const CLI::App& app, const CLI::ParseError& error,
                        std::span<const char* const> arguments);

}  // namespace ecu::ctl
