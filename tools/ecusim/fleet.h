#pragma once

#include "ecusim/fleet_unit.h"

namespace ecu::sim {

/// Simulates a fleet on the calling thread until SIGINT or SIGTERM, and prints a line of counters each second
/// on standard output. Throws std::system_error if the process may not open enough files.
void run_fleet(const FleetSetup& setup);

}  // namespace ecu::sim
