#pragma once

#include <ostream>

#include "quilctl/model/values.h"

namespace ecu::ctl {

/// Prints a message that `decode` has decoded on several lines, without truncating anything.
void print_decoded(std::ostream& out, const Json& decoded);

}  // namespace ecu::ctl
