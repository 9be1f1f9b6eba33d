#pragma once

#include <string_view>

namespace ecu::ctl {

/// Tells the user something that is no data: a line on standard error, behind the program's name.
void note(std::string_view text);

}  // namespace ecu::ctl
