#pragma once

#include <string>
#include <string_view>

#include "quilctl/model/variable_rows.h"

namespace ecu::ctl {

/// What is wrong with a format; empty when it is valid. A format is text with the fields {name}, {value},
/// {age}, {time} (local, at which the value was set), {topic} and {unit} (in a fleet), and with \\n, \\t and
/// \\\\.
[[nodiscard]] std::string fault_of_format(const std::string& format);

/// The row in a valid format. The value is escaped unless `raw`; what is not known is "-", a missing value
/// empty.
[[nodiscard]] std::string formatted(std::string_view format, const VariableRow& row, const UnitClock& clock,
                                    bool raw);

/// `name='value'` for a POSIX shell, the value escaped; `unset name` without a value.
[[nodiscard]] std::string shell_assignment(const VariableRow& row);

}  // namespace ecu::ctl
