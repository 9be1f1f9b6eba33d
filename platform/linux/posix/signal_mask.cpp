#include <pthread.h>

#include <array>

#include <ecu/tamu/signal_mask.h>

namespace ecu::tamu {

sigset_t signal_set(std::span<const int> signal_numbers) noexcept {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal_number : signal_numbers) {
    sigaddset(&signals, signal_number);
  }
  return signals;
}

sigset_t termination_signals() noexcept {
  return signal_set(std::array{SIGINT, SIGTERM});
}

void block_signals(const sigset_t& signals) noexcept {
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void block_failed_write_signals() noexcept {
  block_signals(signal_set(std::array{SIGPIPE, SIGXFSZ, SIGTTOU}));
}

void unblock_signals(const sigset_t& signals) noexcept {
  ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

sigset_t mask_without(const sigset_t& signals) noexcept {
  sigset_t mask;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  for (int signal_number = 1; signal_number < NSIG; ++signal_number) {
    if (sigismember(&signals, signal_number) == 1) {
      sigdelset(&mask, signal_number);
    }
  }
  return mask;
}

}  // namespace ecu::tamu
