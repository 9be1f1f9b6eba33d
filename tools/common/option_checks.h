#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <optional>
#include <string>

#include "common/broker_options.h"

/// Options and checks for their values. The library's own conversions accept more than users expect: nan,
/// 0x10, spaces.
namespace ecu::tools {

[[nodiscard]] CLI::Validator is_number();
[[nodiscard]] CLI::Validator is_digits();
[[nodiscard]] CLI::Validator is_positive_number();
[[nodiscard]] CLI::Validator is_topic_filter();

[[nodiscard]] CLI::Validator is_folder();

/// An unset variable of the shell gives an empty value, which must not select the default.
[[nodiscard]] CLI::Validator is_not_empty();

/// Adds an option for a text, which must not be empty.
CLI::Option* add_text(CLI::App& command, const std::string& name, std::string& target,
                      const std::string& type, const std::string& purpose);

/// Adds an option for a time in seconds.
void add_seconds(CLI::App& command, const std::string& name,
                 std::optional<std::chrono::duration<double>>& target, const std::string& purpose);

/// Adds the options to a command line. With an `environment`, variables that begin with it are their
/// defaults.
void add_broker_options(CLI::App& app, BrokerOptions& options, const std::string& environment = "");

}  // namespace ecu::tools
