#pragma once

#include <optional>
#include <string>

#include <ecu/tamu/com/topics.h>

#include "quilctl/base/failure.h"
#include "quilctl/model/variable_view.h"
#include "quilctl/talk/bus_event.h"

namespace ecu::ctl {

/// A value of the secure storage as published on the bus, and the presence of the daemon.
class SecretView {
 public:
  void handle(const Event& event) {
    if (event.text == tamu::com::topics::daemon_presence) {
      (void)presence_.take(event.text, event.message);
    } else {
      value_.emplace(event.message.payload.begin(), event.message.payload.end());
      is_live_ = !event.message.retained;
    }
  }

  [[nodiscard]] const std::optional<std::string>& value() const noexcept { return value_; }
  /// Whether the daemon has confirmed `value` since the connection.
  [[nodiscard]] bool confirmed(const std::string& value) const { return is_live_ && value_ == value; }
  [[nodiscard]] bool has_presence() const noexcept { return presence_.daemon_on_line().has_value(); }
  /// Throws `Failure` when the daemon is known to be off line.
  void require_daemon() const {
    if (presence_.daemon_on_line() == false) {
      throw Failure(ExitCode::daemon_off_line, "the daemon is off line");
    }
  }

 private:
  VariableView presence_;
  std::optional<std::string> value_;
  bool is_live_ = false;
};

}  // namespace ecu::ctl
