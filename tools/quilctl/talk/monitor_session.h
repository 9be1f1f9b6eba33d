#pragma once

#include <optional>
#include <string>

#include "quilctl/base/options.h"
#include "quilctl/model/variable_view.h"
#include "quilctl/talk/bus_connection.h"

namespace ecu::ctl {

/// The bus for a command that goes on until it is interrupted: the broker must be there at the beginning, and
/// is waited for when it goes later.
class LongWatch {
 public:
  using Clock = Bus::Clock;

  /// Both must outlive it.
  LongWatch(const Options& options, Bus& bus);

  /// The next event; nothing at `wake`, and now and then before. Throws `Interrupted`, and `Failure` when the
  /// broker cannot be reached at first or refuses a subscription.
  [[nodiscard]] std::optional<Event> next(Clock::time_point wake = Clock::time_point::max());

  /// Whether the broker has let us in.
  [[nodiscard]] bool was_up() const noexcept { return was_up_; }

  /// What is new since the call before of the connection, of the daemon, or of messages that were lost; may
  /// be empty. Losses are told once a second.
  [[nodiscard]] const std::string& news() const noexcept { return news_; }

  /// The losses that `news` would have told later; may be empty.
  [[nodiscard]] std::string loss_news();

 private:
  [[nodiscard]] std::optional<Event> next_event(Clock::time_point wake);
  [[nodiscard]] std::string news_of(const Event& event);
  [[nodiscard]] std::string presence_news(const Event& event);

  Bus& bus_;
  const Clock::time_point first_deadline_;
  bool was_up_ = false;
  Clock::time_point loss_due_;  // when losses are told next
  std::string reason_;          // why there is no connection, as the user was told
  VariableView presence_;
  std::string news_;
};

/// At the end: tells the user of the losses that `news` would have told later.
void note_losses(LongWatch& watch);

}  // namespace ecu::ctl
