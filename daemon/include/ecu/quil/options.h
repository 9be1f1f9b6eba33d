#pragma once

#include <string>

namespace ecu::quil {

/// What the command line said.
struct Options {
  std::string config_path;  // empty unless given
  std::string log_level;    // empty unless given; "DEBUG" for --verbose
  bool log_to_stdout = false;
};

/// Reads the command line into `options`; of an option given twice the last one counts. False when it is not
/// one that the program takes, or asks for the usage. Ends the process with exit code 0 after printing the
/// version, and with 1 for an argument that is no option. --log-stdout takes effect at once.
[[nodiscard]] bool parse_opts(int argc, char* argv[], Options& options);

/// Prints the usage to standard output.
void usage();

}  // namespace ecu::quil
