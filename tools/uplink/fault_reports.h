#pragma once

#include <chrono>
#include <map>
#include <string>

#include "uplink/change_filter.h"

namespace ecu::uplink {

/// Decides which faults are logged: a subject's first one, and then one after each time in which it was
/// usable again, but not within 10 minutes of the previous line. Its memory is bounded: beyond 64 subjects,
/// none is logged. Not thread-safe.
class FaultReports {
 public:
  /// `subject` is unusable. True if that must be logged.
  [[nodiscard]] bool must_report(const std::string& subject, BootTime now);

  /// `subject` is usable.
  void set_usable(const std::string& subject);

 private:
  struct Fault {
    BootTime reported{};
    bool is_over = false;
  };

  std::map<std::string, Fault> faults_;
};

}  // namespace ecu::uplink
