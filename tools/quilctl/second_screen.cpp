#include "second_screen.h"

#include <pthread.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace ecu::ctl {

namespace {

constexpr std::string_view enter_sequence = "\x1b[?1049h\x1b[?25l";
constexpr std::string_view leave_sequence = "\x1b[?25h\x1b[?1049l";

// Not by a stream, as the handler writes too.
void write_to_terminal(std::string_view sequence) {
  (void)!::write(STDOUT_FILENO, sequence.data(), sequence.size());
}

void change_mask(int how) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTSTP);
  pthread_sigmask(how, &signals, nullptr);
}

void handle_stop(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigaction(SIGTSTP, &action, nullptr);
}

void on_stop(int signal_number) {
  const int error = errno;
  write_to_terminal(leave_sequence);
  handle_stop(SIG_DFL);
  (void)::raise(signal_number);
  change_mask(SIG_UNBLOCK);  // here it stops
  change_mask(SIG_BLOCK);
  handle_stop(on_stop);
  ::tcdrain(STDOUT_FILENO);  // stops it again for as long as it is in the background
  write_to_terminal(enter_sequence);
  errno = error;
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
    handle_stop(on_stop);
    write_to_terminal(enter_sequence);
  }
}

void SecondScreen::leave() {
  if (is_entered_) {
    is_entered_ = false;
    handle_stop(SIG_DFL);
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
