#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include <ecu/tamu/com/message.h>

#include "quilctl/model/variable_rows.h"
#include "quilctl/model/variable_view.h"

namespace ecu::ctl {

/// The units of a fleet, as the fleet's broker has them.
class FleetView {
 public:
  struct Unit {
    FleetUnit unit;
    VariableView variables{};  // with the daemon's presence
    std::string presence{};    // empty: not published
    std::optional<std::chrono::system_clock::time_point>
        connected_since{};  // of the present or last connection

    [[nodiscard]] bool is_online() const;
    /// Whether the broker retains something of it.
    [[nodiscard]] bool is_known() const;
  };

  /// What a message has changed.
  struct Change {
    VariableView::Change kind = VariableView::Change::other;
    const Unit* unit = nullptr;  // null: not a topic of the fleet
    std::string variable{};      // its name; empty for a change of the presence
  };

  /// `prefix` is the first level of the fleet's topics.
  explicit FleetView(std::string prefix) : prefix_(std::move(prefix)) {}

  /// Updates the view from a message. One that cannot be read leaves the view as it was.
  Change take(const std::string& topic, const tamu::com::Message& message);

  /// All units, by name.
  [[nodiscard]] const std::map<std::string, Unit, std::less<>>& units() const noexcept { return units_; }
  /// The topics that may be retained, as far as messages or `unit` have named them.
  [[nodiscard]] std::set<std::string> topics() const;
  /// The unit of that name; adds it if it has not published anything.
  Unit& unit(const std::string& name);

 private:
  const std::string prefix_;
  std::map<std::string, Unit, std::less<>> units_;
};

}  // namespace ecu::ctl
