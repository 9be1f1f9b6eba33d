#pragma once

#include <optional>
#include <string>

#include "common/variable_catalogue.h"
#include "quilctl/base/options.h"

namespace ecu::ctl {

using tools::Json;

/// A value as JSON: null without a value, a string when it is UTF-8, else {"hex": "..."}.
[[nodiscard]] Json json_value(const std::optional<std::string>& value);

/// A value within a line of text: escaped; "(no value)" without a value; "" in quotes when it is empty.
[[nodiscard]] std::string shown_value(const std::optional<std::string>& value);

/// Writes a single value to standard output: escaped and with a line end, or unchanged with --raw.
void print_value(const Options& options, const std::string& value);

/// Writes one JSON object as a line to standard output and flushes it. On a terminal, which obeys some
/// characters, all but ASCII is escaped.
void print_json(const Json& object);

}  // namespace ecu::ctl
