#pragma once

#include <string_view>

namespace ecu::ctl {

/// Prints a diagnostic line on standard error, after the program's name.
void note(std::string_view text);

}  // namespace ecu::ctl
