#pragma once

#include <algorithm>
#include <chrono>
#include <set>
#include <string>

namespace ecu::tamu::com::mqtt {

/// The subscriptions that the broker has refused. They are requested again after a pause, and after each
/// refusal one of twice the length, because the broker may learn later that they are allowed. Every new
/// connection requests them, too. One thread at a time uses it.
class RefusedSubscriptions {
 public:
  using Clock = std::chrono::steady_clock;

  /// With a pause of 0 they are requested only by new connections.
  explicit RefusedSubscriptions(std::chrono::seconds first_pause)
      : first_pause_(first_pause), pause_(first_pause) {}

  /// The broker has refused `filter`. True unless its last answer about it was the same.
  [[nodiscard]] bool refused(const std::string& filter, Clock::time_point now) {
    if (due_ == Clock::time_point::max() && pause_ > Clock::duration::zero()) {
      due_ = now + pause_;
      pause_ = std::min(2 * pause_, pause_growth * first_pause_);
    }
    return filters_.insert(filter).second;
  }

  /// The broker has granted `filter`. True if it had refused it before.
  [[nodiscard]] bool granted(const std::string& filter) { return filters_.erase(filter) > 0; }

  /// The next connection requests all subscriptions.
  void connection_lost() noexcept {
    due_ = Clock::time_point::max();
    pause_ = first_pause_;
  }

  [[nodiscard]] bool contains(const std::string& filter) const { return filters_.contains(filter); }

  /// When they are requested again; Clock::time_point::max() if no time is set.
  [[nodiscard]] Clock::time_point due() const noexcept { return due_; }
  /// Whether the time has come, for the caller to request those that are still wanted.
  [[nodiscard]] bool take_due(Clock::time_point now) noexcept {
    if (now < due_) {
      return false;
    }
    due_ = Clock::time_point::max();
    return true;
  }

 private:
  static constexpr int pause_growth = 64;  // from the first pause to the longest one

  const Clock::duration first_pause_;
  Clock::duration pause_;
  Clock::time_point due_ = Clock::time_point::max();
  std::set<std::string> filters_;
};

}  // namespace ecu::tamu::com::mqtt
