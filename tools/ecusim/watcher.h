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

/// `text` with the backslash, and every byte that is not printable ASCII, written as \xNN.
[[nodiscard]] std::string printable(std::string_view text);

/// Prints a line for every publication of a variable: name, value and time stamp (seconds since boot); and
/// for every new value of a system parameter, with the name "sysparam/" and its identifier. A line reports
/// each message that cannot be decoded.
class VariablePrinter final : public tamu::com::ISubscriptionObserver {
 public:
  /// `out` must outlive the printer. The delivering thread calls `on_failure` when writing
  /// fails.
  VariablePrinter(std::ostream& out, std::function<void()> on_failure)
      : out_(out), on_failure_(std::move(on_failure)) {}

  void message(const std::string& topic, const tamu::com::Message& msg) override;

 private:
  std::ostream& out_;
  std::function<void()> on_failure_;
  std::map<std::string, std::string> parameter_lines_;  // last printed, by name
};

/// Waits until every expected variable and system parameter has once had its expected value.
class VariableChecker final : public tamu::com::ISubscriptionObserver {
 public:
  /// The delivering thread calls `on_complete` once, when the last one has arrived.
  VariableChecker(const std::vector<Expectation>& expect, std::function<void()> on_complete);

  void message(const std::string& topic, const tamu::com::Message& msg) override;

  /// Prints all expected variables to `out` and returns true when they have all arrived. Otherwise prints the
  /// missing ones to `err`. Must not be called while messages are delivered.
  bool report(std::ostream& out, std::ostream& err) const;

 private:
  struct Expected {
    Expectation expectation;
    std::string line;   // for the last publication; empty before
    std::string value;  // of the last publication
    bool fulfilled = false;
  };

  // Used by deliveries, of which there is one at a time, and by `report` after them.
  std::vector<Expected> expected_;
  std::size_t missing_;
  std::function<void()> on_complete_;
};

}  // namespace ecu::sim
