#pragma once

#include <stdexcept>
#include <string>

namespace ecu::ctl {

/// The exit code of the program.
enum class ExitCode : int {
  done = 0,
  failure = 1,
  usage = 2,
  unknown = 3,   // no such name or identifier
  no_value = 4,  // known, but without a value
  refused = 5,   // by the broker, the daemon or the other side of the ports
  daemon_off_line = 6,
  broker_unreachable = 7,  // or the broker rejects the login
  time_out = 27,
};

/// Ends the program: the user sees `what()` in one line.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& reason) : std::runtime_error(reason), code_(code) {}

  [[nodiscard]] ExitCode code() const noexcept { return code_; }

 private:
  ExitCode code_;
};

}  // namespace ecu::ctl
