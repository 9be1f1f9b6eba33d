#pragma once

#include "quilctl/base/options.h"

/// The commands; see `CommandFunction`. Each has an entry in command_table.cpp.
namespace ecu::ctl {

[[nodiscard]] ExitCode list(const Options& options);
/// The command `list --expect`.
[[nodiscard]] ExitCode list_expected(const Options& options);
[[nodiscard]] ExitCode get(const Options& options);
[[nodiscard]] ExitCode watch(const Options& options);
[[nodiscard]] ExitCode describe(const Options& options);
[[nodiscard]] ExitCode param_get(const Options& options);
[[nodiscard]] ExitCode param_list(const Options& options);
[[nodiscard]] ExitCode param_set(const Options& options);
[[nodiscard]] ExitCode secstore_get(const Options& options);
[[nodiscard]] ExitCode secstore_set(const Options& options);
[[nodiscard]] ExitCode status(const Options& options);
[[nodiscard]] ExitCode check(const Options& options);
[[nodiscard]] ExitCode decode(const Options& options);
[[nodiscard]] ExitCode record(const Options& options);
[[nodiscard]] ExitCode replay(const Options& options);

}  // namespace ecu::ctl
