#pragma once

namespace ecu::ctl {

/// The second screen of the terminal on standard output. Whoever stops the process (Ctrl-Z) has the first one
/// back meanwhile, and whoever ends it by SIGQUIT for good. Make it before any thread is started, and only
/// one: it blocks these signals in every thread of the process.
class SecondScreen {
 public:
  SecondScreen();
  /// Leaves it.
  ~SecondScreen();
  SecondScreen(const SecondScreen&) = delete;
  SecondScreen& operator=(const SecondScreen&) = delete;

  void enter();
  void leave();
  [[nodiscard]] bool is_entered() const noexcept { return is_entered_; }

  /// While one lives the process can be stopped or ended by this thread, which must not write to the terminal
  /// then. What was on the screen is gone when the process goes on.
  class Stoppable {
   public:
    Stoppable();
    ~Stoppable();
    Stoppable(const Stoppable&) = delete;
    Stoppable& operator=(const Stoppable&) = delete;
  };

 private:
  bool is_entered_ = false;
};

}  // namespace ecu::ctl
