#include <pthread.h>
#include <signal.h>

#include <ecu/quil/process.h>

namespace ecu::quil {

namespace {

void on_signal(int signal_number) {
  if (signal_number != SIGINT && signal_number != SIGTERM) {
    return;
  }
  ProcessHolder& holder = process();
  if (holder.daemon) {
    holder.daemon->stop();
  }
  if (holder.client) {
    holder.client->stop();
  }
  (void)signal(SIGINT, SIG_DFL);
  (void)signal(SIGTERM, SIG_DFL);
}

}  // namespace

ProcessHolder& process() {
  // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): outlives every static, as a signal may come that late
  static auto* const holder = new ProcessHolder;
  return *holder;
}

void install_signal_handler() {
  struct sigaction action {};
  action.sa_handler = on_signal;
  action.sa_flags = SA_RESTART;
  // Each signal holds the other one off, so that the handler never interrupts itself in the middle of a stop.
  sigemptyset(&action.sa_mask);
  sigaddset(&action.sa_mask, SIGINT);
  sigaddset(&action.sa_mask, SIGTERM);
  sigset_t blocked = action.sa_mask;
  // A log whose reader has gone is no reason to end.
  sigaddset(&blocked, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

}  // namespace ecu::quil
