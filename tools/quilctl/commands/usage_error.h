#pragma once

#include <CLI/CLI.hpp>
#include <span>

namespace ecu::ctl {

/// Tells the user what is wrong with the `words` of a command line that `app` could not parse, and where the
/// usage is shown.
void tell_usage_error(const CLI::App& app, const CLI::ParseError& error, std::span<const char* const> words);

}  // namespace ecu::ctl
