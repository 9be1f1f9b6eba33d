#include "quilctl/screen/alternate_screen.h"

#include <pthread.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>

namespace ecu::ctl {

namespace {

constexpr std::string_view enter_sequence = "\x1b[?1049h\x1b[?25l";
constexpr std::string_view leave_sequence = "\x1b[?25h\x1b[?1049l";

// What stops or ends the process by default, and is not the bus's.
constexpr std::array handled_signals = {SIGTSTP, SIGQUIT};

// Not by a stream, as the handler writes too.
void write_to_terminal(std::string_view sequence) {
  (void)!::write(STDOUT_FILENO, sequence.data(), sequence.size());
}

void change_mask(int how) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal_number : handled_signals) {
    sigaddset(&signals, signal_number);
  }
  pthread_sigmask(how, &signals, nullptr);
}

// Not where the caller has the signal ignored.
void handle(int signal_number, void (*handler)(int)) {
  struct sigaction action {};
  sigaction(signal_number, nullptr, &action);
  if (action.sa_handler != SIG_IGN) {
    action.sa_handler = handler;
    sigaction(signal_number, &action, nullptr);
  }
}

void on_signal(int signal_number) {
  const int error = errno;
  write_to_terminal(leave_sequence);
  handle(signal_number, SIG_DFL);
  (void)::raise(signal_number);
  change_mask(SIG_UNBLOCK);  // here it stops or ends
  change_mask(SIG_BLOCK);
  handle(signal_number, on_signal);
  ::tcdrain(STDOUT_FILENO);  // stops it again for as long as it is in the background
  write_to_terminal(enter_sequence);
  errno = error;
}

void handle_all(void (*handler)(int)) {
  for (const int signal_number : handled_signals) {
    handle(signal_number, handler);
  }
}

}  // namespace

SecondScreen::SecondScreen() {
  change_mask(SIG_BLOCK);
}

SecondScreen::~SecondScreen() {
  leave();
  change_mask(SIG_UNBLOCK);
}

void SecondScreen::enter() {
  if (!is_entered_) {
    is_entered_ = true;
    handle_all(on_signal);
    write_to_terminal(enter_sequence);
  }
}

void SecondScreen::leave() {
  if (is_entered_) {
    is_entered_ = false;
    handle_all(SIG_DFL);
    write_to_terminal(leave_sequence);
  }
}

SecondScreen::Stoppable::Stoppable() {
  change_mask(SIG_UNBLOCK);
}

SecondScreen::Stoppable::~Stoppable() {
  change_mask(SIG_BLOCK);
}

}  // namespace ecu::ctl
