#pragma once

#include <chrono>

namespace ecu::tamu::com::mqtt {

/// When the retained messages are published again, because the broker may have acknowledged what it has not
/// retained: a time after each connection and after each late acknowledgement. While acknowledgements are
/// late soon after a repetition, too, the time doubles, so that a slow link carries few repetitions.
class Repetition {
 public:
  using Clock = std::chrono::steady_clock;

  /// With a time of 0 there are no repetitions.
  explicit Repetition(std::chrono::seconds after) : after_(after) {}

  void connection_up(Clock::time_point now) {
    pause_ = after_;
    plan(now);
  }
  void connection_lost() noexcept { due_ = Clock::time_point::max(); }
  void acknowledged_late(Clock::time_point now) {
    if (!is_planned()) {
      pause_ = now - last_ < 2 * pause_ ? 2 * pause_ : after_;
      plan(now);
    }
  }

  [[nodiscard]] bool is_planned() const noexcept { return due_ != Clock::time_point::max(); }
  /// Clock::time_point::max() if no repetition is planned.
  [[nodiscard]] Clock::time_point due() const noexcept { return due_; }
  /// Whether a repetition is due, which the caller then makes.
  [[nodiscard]] bool take_due(Clock::time_point now) {
    if (now < due_) {
      return false;
    }
    last_ = now;
    due_ = Clock::time_point::max();
    return true;
  }

 private:
  void plan(Clock::time_point now) {
    if (after_ > Clock::duration::zero()) {
      due_ = now + pause_;
    }
  }

  const Clock::duration after_;
  Clock::duration pause_{};
  Clock::time_point last_{};
  Clock::time_point due_ = Clock::time_point::max();
};

}  // namespace ecu::tamu::com::mqtt
