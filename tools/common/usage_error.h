#pragma once

#include <CLI/CLI.hpp>
#include <span>
#include <string_view>

namespace ecu::tools {

/// Tells the user why `app` could not parse the command line `arguments`, and how to see the usage.
void report_usage_error(const CLI::App& app, const CLI::ParseError& error,
                        std::span<const char* const> arguments);

/// Whether the command line sets the option; otherwise its value comes from the environment.
[[nodiscard]] bool is_given(std::string_view option, std::span<const char* const> arguments);

}  // namespace ecu::tools
