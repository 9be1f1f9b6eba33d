#pragma once

#include <optional>
#include <string>

namespace ecu::ctl {

/// What the daemon reports to this machine's service manager, for instance "on line; receive port away since
/// 14:02". Nothing when the broker, an address as `BusConnection::broker` returns it, may run on another
/// machine, or the daemon is not a running service of this one. A tunnel to another machine that begins on
/// this one is not recognised. Runs systemctl(1), for at most a few seconds.
[[nodiscard]] std::optional<std::string> service_status(const std::string& broker);

}  // namespace ecu::ctl
