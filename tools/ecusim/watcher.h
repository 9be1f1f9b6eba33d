#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <ecu/tamu/com/transport_client.h>

#include "ecusim/scenario.h"

namespace ecu::sim {

/// The topic filters of every variable, and of the list of system parameters.
inline constexpr const char* all_variables = "system/var/#";
inline constexpr const char* all_parameters = "system/sysparams";

/// `text` with every byte that is not printable ASCII, and the backslash, written as \xNN.
[[nodiscard]] std::string printable(std::string_view text);

/// Prints every variable as it comes: its name, its value and its time stamp (seconds since boot), one a
/// line; and every system parameter, named "sysparam/" and its identifier, when its value is new. What cannot
/// be decoded gets a line that says so.
class VariablePrinter final : public tamu::com::ISubscriptionObserver {
 public:
  /// `out` must outlive the printer. `on_failure` is called, on the delivering thread, when it cannot be
  /// written to.
  VariablePrinter(std::ostream& out, std::function<void()> on_failure)
      : out_(out), on_failure_(std::move(on_failure)) {}

  void message(const std::string& topic, const tamu::com::Message& msg) override;

 private:
  std::ostream& out_;
  std::function<void()> on_failure_;
  std::map<std::string, std::string> parameter_lines_;  // printed last, by name
};

/// Waits for every expected variable and system parameter to come once with its expected value.
class VariableChecker final : public tamu::com::ISubscriptionObserver {
 public:
  /// `on_complete` is called once, on the delivering thread, when the last one has come.
  VariableChecker(const std::vector<Expectation>& expect, std::function<void()> on_complete);

  void message(const std::string& topic, const tamu::com::Message& msg) override;

  /// True when every expected variable has come; they are then printed to `out`. Otherwise those that have
  /// not are printed to `err`. Not to be called while messages are delivered.
  bool report(std::ostream& out, std::ostream& err) const;

 private:
  struct Expected {
    Expectation expectation;
    std::string line;   // for what came last; empty until something has
    std::string value;  // of what came last
    bool fulfilled = false;
  };

  // Of the deliveries, which come one after another, and of `report` behind them.
  std::vector<Expected> expected_;
  std::size_t missing_;
  std::function<void()> on_complete_;
};

}  // namespace ecu::sim
