#pragma once

#include <algorithm>
#include <chrono>
#include <random>

#include "mqtt/mqtt_settings.h"

namespace ecu::tamu::com::mqtt {

/// The pauses between attempts to connect: 100 ms, doubling to 500 ms for a broker on this machine, whose
/// return must be noticed soon, and to 5 s for any other. Each is shortened at random by up to a quarter, so
/// that clients do not reconnect in step. With a spread of reconnections, each pause is random within it.
class Backoff {
 public:
  using Duration = std::chrono::milliseconds;

  /// A connection that lasted this long is stable.
  static constexpr std::chrono::seconds stable_after{5};

  explicit Backoff(const MqttSettings& settings)
      : longest_(settings.is_local() ? longest_local : longest_remote), spread_(settings.reconnect_spread) {}

  /// The pause before the next attempt, to be asked for once for each failed attempt or lost connection: each
  /// call doubles the pause, up to the longest, unless there is a spread.
  [[nodiscard]] Duration next() {
    if (spread_ > Duration::zero()) {
      return Duration(std::uniform_int_distribution<Duration::rep>(0, spread_.count())(random_));
    }
    const Duration pause = pause_;
    pause_ = std::min(2 * pause_, longest_);
    return shortened(pause);
  }

  /// The shortest pause, from which the next ones start. With a spread it is as random as every other: a
  /// fault of the broker may make all clients of a fleet restart.
  [[nodiscard]] Duration restart() {
    pause_ = first;
    return next();
  }

  /// To be called when a connection that lasted `held` is lost. After a stable one the pauses start again at
  /// the shortest.
  void connection_lost(std::chrono::nanoseconds held) noexcept {
    if (held >= stable_after) {
      pause_ = first;
    }
  }

 private:
  static constexpr Duration first{100};
  static constexpr Duration longest_local{500};
  static constexpr Duration longest_remote{5000};
  static constexpr int max_jitter_percent = 25;

  Duration shortened(Duration pause) {
    return pause - pause * std::uniform_int_distribution<int>(0, max_jitter_percent)(random_) / 100;
  }

  Duration longest_;
  Duration spread_;
  Duration pause_ = first;
  std::minstd_rand random_{std::random_device()()};
};

}  // namespace ecu::tamu::com::mqtt
