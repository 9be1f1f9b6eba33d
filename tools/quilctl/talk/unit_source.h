#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "quilctl/model/variable_view.h"
#include "quilctl/talk/variable_source.h"

namespace ecu::ctl {

/// The variables on the bus of a unit.
class UnitSource final : public VariableSource {
 public:
  /// `patterns` select the variables.
  explicit UnitSource(std::vector<std::string> patterns) : patterns_(std::move(patterns)) {}

  void use_local_clock() noexcept override { clock_.use_local_clock(); }
  [[nodiscard]] std::vector<std::string> filters(bool for_table) const override;
  Update take(const Event& message) override;
  [[nodiscard]] std::vector<VariableRow> rows() const override { return variable_rows(view_, patterns_); }
  void require_known() const override { ctl::require_known(variable_rows(view_), patterns_); }
  [[nodiscard]] bool is_of_fleet() const noexcept override { return false; }
  [[nodiscard]] Summary summary() const override;
  [[nodiscard]] bool is_stale(const VariableRow& /*row*/) const override {
    return view_.daemon_on_line() == false;
  }
  [[nodiscard]] const UnitClock& clock() const noexcept override { return clock_; }

  [[nodiscard]] const VariableView& view() const noexcept { return view_; }

 private:
  Update take_ignition(const Event& message);

  const std::vector<std::string> patterns_;
  VariableView view_;
  UnitClock clock_;
  std::optional<bool> ignition_;
};

}  // namespace ecu::ctl
