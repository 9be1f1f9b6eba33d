#include <poll.h>
#include <unistd.h>

#include <exception>
#include <iostream>

#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/standard_streams.h>

#include "common/input_file.h"
#include "common/notes.h"
#include "quilctl/base/failure.h"
#include "quilctl/commands/quilctl_command_line.h"
#include "quilctl/screen/display_width.h"
#include "quilctl/talk/termination.h"

namespace {

using namespace ecu::ctl;
using ecu::tools::note;
namespace logging = ecu::tamu::logging;

constexpr int interrupted = 128;  // plus the signal's number, as shells do

// Not an error: the reader has seen enough.
bool reader_of_output_is_gone() {
  pollfd output{STDOUT_FILENO, 0, 0};
  return ::poll(&output, 1, 0) > 0 && (output.revents & POLLERR) != 0;
}

int exit_code_of(const Options& options) {
  try {
    const ExitCode code = options.command(options);
    if (std::cout.flush()) {
      return static_cast<int>(code);
    }
    if (reader_of_output_is_gone()) {
      return interrupted + SIGPIPE;  // a thread of the bus client ignores the signal itself
    }
    note("cannot write to standard output");
    return static_cast<int>(ExitCode::failure);
  } catch (const Failure& failure) {
    note(failure.what());
    return static_cast<int>(failure.code());
  } catch (const ecu::tools::InputError& failure) {
    note(failure.what());
    return static_cast<int>(ExitCode::usage);
  } catch (const Interrupted& interruption) {
    return interrupted + interruption.signal_number;
  } catch (const std::exception& failure) {
    note(failure.what());
    return static_cast<int>(ExitCode::failure);
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  ecu::tamu::open_standard_streams();
  use_terminal_encoding();
  Options options;
  if (const auto exit_code = parse_command_line(argc, argv, options)) {
    return *exit_code;
  }
  // The commands report the state of the connection themselves.
  logging::set_log_mode(options.verbose ? logging::LogMode::standard_error : logging::LogMode::none);
  logging::configure_logging(options.verbose ? "DEBUG" : "EMERG");
  return exit_code_of(options);
}
