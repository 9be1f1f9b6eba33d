#pragma once

#include <string>

namespace ecu::quil {

/// The options of the command line.
struct Options {
  std::string config_path;  // empty unless given
  std::string log_level;    // empty unless given; "DEBUG" for --verbose
  bool log_to_stdout = false;
};

/// The options of the process, which `parse_opts` sets.
[[nodiscard]] Options& options();

/// Reads the command line into `options()`; the last occurrence of an option counts. False for an unknown
/// option and for --help. Ends the process with exit code 0 after printing the version, and with 1 for an
/// argument that is not an option. --log-stdout takes effect at once.
[[nodiscard]] bool parse_opts(int argc, char* argv[]);

/// Prints the usage to standard output.
void usage();

}  // namespace ecu::quil
