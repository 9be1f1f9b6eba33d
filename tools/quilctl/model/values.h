#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "quilctl/base/options.h"

namespace ecu::ctl {

using Json = nlohmann::ordered_json;

/// A value as JSON: null without one, a text when it is UTF-8, else {"hex": "..."}.
[[nodiscard]] Json json_value(const std::optional<std::string>& value);

/// A value within a line of text: escaped, "(no value)" without one, "" in quotes when it is empty.
[[nodiscard]] std::string shown_value(const std::optional<std::string>& value);

/// Writes a single value to standard output as the options want it: with its line's end and escaped, or as it
/// is with --raw.
void print_value(const Options& options, const std::string& value);

/// Writes one JSON object as a line to standard output, at once.
void print_json(const Json& object);

/// The time on the clock, as JSON (ISO 8601, UTC) and for people (local time), to the millisecond.
[[nodiscard]] std::string iso_time(std::chrono::system_clock::time_point at);
[[nodiscard]] std::string local_time(std::chrono::system_clock::time_point at);

}  // namespace ecu::ctl
