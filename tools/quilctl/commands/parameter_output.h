#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "quilctl/base/options.h"
#include "quilctl/talk/parameter_client.h"

/// The common part of the commands for system parameters.
namespace ecu::ctl {

inline constexpr std::chrono::seconds parameter_read_timeout{5};
inline constexpr const char* nothing_received = "no parameters received from the other side of the ports yet";

/// The identifier that an argument gives; throws `Failure` when it is invalid.
[[nodiscard]] std::uint32_t id_of_argument(const std::string& argument);

/// An identifier as the commands show it.
[[nodiscard]] std::string shown_id(std::uint32_t id);

/// Prints identifier and value as a line.
void print_line(const Options& options, const Parameter& parameter);

}  // namespace ecu::ctl
