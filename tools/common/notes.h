#pragma once

#include <string_view>

namespace ecu::tools {

/// Prints a diagnostic line on standard error, after the program's name; `text` is escaped.
void note(std::string_view text);

}  // namespace ecu::tools
