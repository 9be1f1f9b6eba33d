#include "common/termination.h"

#include <csignal>

#include <ecu/tamu/signal_mask.h>

namespace ecu::tools {

namespace {

void (*requested_stop)() = nullptr;

void on_signal(int) {
  requested_stop();
  // Both: the client unblocks them after its wait only when neither has a handler.
  (void)std::signal(SIGINT, SIG_DFL);
  (void)std::signal(SIGTERM, SIG_DFL);
}

}  // namespace

void stop_on_termination(void (*stop)()) {
  requested_stop = stop;
  struct sigaction action {};
  action.sa_handler = on_signal;
  action.sa_flags = SA_RESTART;
  action.sa_mask = tamu::termination_signals();
  tamu::block_signals(action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

}  // namespace ecu::tools
