#pragma once

namespace ecu::ctl {

/// The alternate screen of the terminal on standard output. The normal screen returns while the process is
/// stopped (Ctrl-Z) and when SIGQUIT ends it. Make it before any thread is started, and only one: it blocks
/// these signals in every thread of the process.
class AlternateScreen {
 public:
  AlternateScreen();
  /// Returns to the normal screen.
  ~AlternateScreen();
  AlternateScreen(const AlternateScreen&) = delete;
  AlternateScreen& operator=(const AlternateScreen&) = delete;

  void enter();
  void leave();
  [[nodiscard]] bool is_entered() const noexcept { return is_entered_; }

  /// During its lifetime these signals can stop or end the process in this thread, which must not write to
  /// the terminal meanwhile. The contents of the screen are lost when the process continues.
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
