#pragma once

#include <functional>
#include <vector>

#include "quilctl/base/failure.h"
#include "quilctl/base/options.h"
#include "quilctl/model/variable_rows.h"
#include "quilctl/screen/text_table.h"

namespace ecu::ctl {

/// The rows as a table; `of_fleet` adds the column of the unit.
[[nodiscard]] TextTable table_of(const std::vector<VariableRow>& rows, const UnitClock& clock, bool of_fleet);

/// Writes the rows to standard output, in the form that the options choose.
void print_rows(const Options& options, const std::vector<VariableRow>& rows, const UnitClock& clock);

/// Writes the value of each row to standard output, or that of --default; without both, a note of the
/// failure. `is_single`: the value only, without the name. Returns the code of the last failure.
[[nodiscard]] ExitCode print_values(const Options& options, const std::vector<VariableRow>& rows,
                                    const UnitClock& clock, bool is_single,
                                    const std::function<Failure(const VariableRow&)>& failure_of);

}  // namespace ecu::ctl
