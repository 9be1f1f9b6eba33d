#include <malloc.h>
#include <signal.h>

#include <exception>

#include <ecu/quil/process.h>
#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/signal_mask.h>

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

void limit_kept_memory() {
  constexpr int large_block = 64 * 1024;
  mallopt(M_MMAP_THRESHOLD, large_block);
  mallopt(M_TRIM_THRESHOLD, large_block);
  mallopt(M_TOP_PAD, large_block / 4);
  mallopt(M_ARENA_MAX, 1);
}

void log_uncaught_exceptions() {
  static const std::terminate_handler default_handler = std::get_terminate();
  std::set_terminate([] {
    try {
      if (const std::exception_ptr failure = std::current_exception()) {
        std::rethrow_exception(failure);
      }
    } catch (const std::exception& failure) {
      tamu::logging::log(tamu::logging::Level::alert,
                         "uncaught exception, the process ends: ", failure.what());
    } catch (...) {
      tamu::logging::log(tamu::logging::Level::alert, "uncaught exception, the process ends");
    }
    default_handler();
  });
}

void install_signal_handler() {
  struct sigaction action {};
  action.sa_handler = on_signal;
  action.sa_flags = SA_RESTART;
  // Each handler blocks the other signal, so that the handler never interrupts itself in the middle of a
  // stop.
  action.sa_mask = tamu::termination_signals();
  tamu::block_signals(tamu::termination_signals());
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

}  // namespace ecu::quil
