#pragma once

#include <functional>
#include <optional>
#include <string>

namespace ecu::ctl {

/// Runs a command in /bin/sh with NAME and VALUE in its environment, VALUE only when there is one, and
/// returns its exit code, or 128 and the number of the signal that ended it. `wait` returns when a descriptor
/// is readable; what it throws ends the command and is passed on.
[[nodiscard]] int run_shell_command(const std::string& command, const std::string& name,
                                    const std::optional<std::string>& value,
                                    const std::function<void(int)>& wait);

}  // namespace ecu::ctl
