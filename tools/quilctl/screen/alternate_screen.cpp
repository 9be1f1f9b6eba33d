#include "quilctl/screen/alternate_screen.h"

#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>

#include <ecu/tamu/signal_mask.h>

namespace ecu::ctl {

namespace {

constexpr std::string_view enter_sequence = "\x1b[?1049h\x1b[?25l";
constexpr std::string_view leave_sequence = "\x1b[?25h\x1b[?1049l";

// They stop or end the process by default. The bus connection does not handle them.
constexpr std::array handled_signals = {SIGTSTP, SIGQUIT};

// Not through a stream, because the signal handler writes, too.
void write_to_terminal(std::string_view sequence) {
  (void)!::write(STDOUT_FILENO, sequence.data(), sequence.size());
}

// Leaves a signal alone that the parent process has set to be ignored.
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
  tamu::unblock_signals(tamu::signal_set(handled_signals));  // here the process stops or ends
  tamu::block_signals(tamu::signal_set(handled_signals));
  handle(signal_number, on_signal);
  ::tcdrain(STDOUT_FILENO);  // stops the process again while it is in the background
  write_to_terminal(enter_sequence);
  errno = error;
}

void handle_all(void (*handler)(int)) {
  for (const int signal_number : handled_signals) {
    handle(signal_number, handler);
  }
}

}  // namespace

AlternateScreen::AlternateScreen() {
  tamu::block_signals(tamu::signal_set(handled_signals));
}

AlternateScreen::~AlternateScreen() {
  leave();
  tamu::unblock_signals(tamu::signal_set(handled_signals));
}

void AlternateScreen::enter() {
  if (!is_entered_) {
    is_entered_ = true;
    handle_all(on_signal);
    write_to_terminal(enter_sequence);
  }
}

void AlternateScreen::leave() {
  if (is_entered_) {
    is_entered_ = false;
    handle_all(SIG_DFL);
    write_to_terminal(leave_sequence);
  }
}

AlternateScreen::Stoppable::Stoppable() {
  tamu::unblock_signals(tamu::signal_set(handled_signals));
}

AlternateScreen::Stoppable::~Stoppable() {
  tamu::block_signals(tamu::signal_set(handled_signals));
}

}  // namespace ecu::ctl
