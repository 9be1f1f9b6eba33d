#pragma once

#include <algorithm>
#include <chrono>
#include <random>

namespace ecu::tamu::com::mqtt {

/// The pauses between attempts to connect: 100 ms, doubling to `longest`. Each is shortened at random by up
/// to a quarter, so that clients do not reconnect in step.
class Backoff {
 public:
  using Duration = std::chrono::milliseconds;

  static constexpr Duration first{100};
  /// The first is for a broker on this machine, whose return must be noticed soon; the second for any other.
  static constexpr Duration longest_local{500};
  static constexpr Duration longest_remote{5000};

  explicit Backoff(Duration longest) : longest_(longest) {}

  [[nodiscard]] Duration next() {
    const Duration pause = pause_;
    pause_ = std::min(2 * pause_, longest_);
    return pause - pause * std::uniform_int_distribution<int>(0, max_jitter_percent)(random_) / 100;
  }

  void reset() noexcept { pause_ = first; }

 private:
  static constexpr int max_jitter_percent = 25;

  Duration longest_;
  Duration pause_ = first;
  std::minstd_rand random_{std::random_device()()};
};

}  // namespace ecu::tamu::com::mqtt
