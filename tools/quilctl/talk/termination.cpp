#include "quilctl/talk/termination.h"

#include <poll.h>

#include <array>

#include <ecu/tamu/signal_mask.h>

namespace ecu::ctl {

namespace {

// A terminal that is closed sends SIGHUP.
constexpr std::array handled = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// Those of a terminal, which its owner may have blocked while it writes.
constexpr std::array unblocked_in_waits = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH};

volatile std::sig_atomic_t pending_signal = 0;

void on_signal(int signal_number) {
  pending_signal = signal_number;
}

// As under nohup, which lets a program outlive its terminal.
bool is_ignored(int signal_number) {
  struct sigaction action {};
  sigaction(signal_number, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

}  // namespace

TerminationHandler::TerminationHandler() {
  struct sigaction action {};
  action.sa_handler = on_signal;
  action.sa_mask = tamu::signal_set(handled);
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  tamu::block_signals(action.sa_mask);
  for (const int signal_number : handled) {
    if (signal_number != SIGHUP || !is_ignored(SIGHUP)) {
      sigaction(signal_number, &action, nullptr);
    }
  }
}

TerminationHandler::~TerminationHandler() {
  tamu::unblock_signals(tamu::signal_set(handled));
}

sigset_t TerminationHandler::wait_mask() const noexcept {
  return tamu::mask_without(tamu::signal_set(unblocked_in_waits));
}

void TerminationHandler::check() const {
  // Delivers pending signals even when the caller never has to wait.
  const timespec at_once{};
  const sigset_t mask = wait_mask();
  ::ppoll(nullptr, 0, &at_once, &mask);
  if (pending_signal != 0) {
    throw Interrupted{pending_signal};
  }
}

}  // namespace ecu::ctl
