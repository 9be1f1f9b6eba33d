#pragma once

#include <functional>
#include <string>

#include "quilctl/model/variable_rows.h"

namespace ecu::ctl {

/// Runs a command in /bin/sh with UNIT (empty on the bus of a unit), NAME and VALUE in its environment,
/// VALUE, which is escaped, only when there is one, RETAINED, which is 1, only when the broker had retained
/// the value, and returns its exit code, or 128 and the number of the signal that ended it. The command's
/// standard input is empty. `wait` returns whether a descriptor becomes readable in time; if not, or when it
/// throws, the command and what it has started are ended. Throws std::system_error if it cannot start.
[[nodiscard]] int run_shell_command(const std::string& command, const VariableRow& row, bool is_retained,
                                    const std::function<bool(int)>& wait);

}  // namespace ecu::ctl
