#include "system/watchdog.h"

#include <utility>

#include <ecu/tamu/logging/logging.h>

#include "system/heartbeat.h"
#include "system/supervision.h"

namespace ecu::tamu {

namespace {

constexpr auto logger = logging::module("tamu.supervision");

}  // namespace

std::chrono::microseconds Watchdog::check() {
  std::string silent = check_heartbeats();
  const bool is_done = silent.empty() && notify_watchdog();
  if (!silent.empty() && silent != reported_) {
    logger.error("no sign of life for ", period_.count() / 1000, " ms: ", silent);
  }
  reported_ = std::move(silent);
  return is_done ? period_ : period_ / 8;
}

}  // namespace ecu::tamu
