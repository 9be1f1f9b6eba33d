#pragma once

#include <csignal>

namespace ecu::ctl {

/// Thrown out of a wait by SIGINT, SIGTERM, SIGHUP or SIGQUIT.
struct Interrupted {
  int signal_number;
};

/// Takes over the signals that end the program, in every thread of the process: create only one, before
/// starting any thread. They take effect while a wait uses `wait_mask`; a second signal ends the process.
class TerminationHandler {
 public:
  TerminationHandler();
  ~TerminationHandler();
  TerminationHandler(const TerminationHandler&) = delete;
  TerminationHandler& operator=(const TerminationHandler&) = delete;

  /// The mask for `ppoll`. It unblocks SIGTSTP and SIGWINCH, too, for the terminal.
  [[nodiscard]] sigset_t wait_mask() const noexcept;

  /// Throws `Interrupted` when one of the signals has arrived.
  void check() const;
};

}  // namespace ecu::ctl
