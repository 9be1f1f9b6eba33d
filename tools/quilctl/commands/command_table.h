#pragma once

#include <CLI/CLI.hpp>
#include <span>

#include "quilctl/base/options.h"

namespace ecu::ctl {

/// A command, or a group of commands.
struct CommandEntry {
  const char* group = "";  // the group that it belongs to; empty: none
  const char* name;
  const char* purpose;
  const char* examples;                                                // one in each line
  void (*add_options)(CLI::App& command, Options& options) = nullptr;  // beyond those of all commands
  CommandFunction run = nullptr;                                       // null: a group
  CommandFunction run_on_fleet = nullptr;                              // null: not with --fleet
};

/// All of them, in the order of the help text; a group comes before its commands.
[[nodiscard]] std::span<const CommandEntry> commands() noexcept;

}  // namespace ecu::ctl
