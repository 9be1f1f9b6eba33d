#include <exception>
#include <iostream>

#include <ecu/tamu/logging/logging.h>

#include "bus.h"
#include "command_line.h"
#include "commands.h"
#include "notes.h"

namespace {

using namespace ecu::ctl;
namespace logging = ecu::tamu::logging;

constexpr int interrupted = 128;  // and the signal's number, as shells have it

int exit_code_of(const Options& options) {
  try {
    const ExitCode code = run(options);
    std::cout.flush();
    return static_cast<int>(std::cout ? code : ExitCode::failure);
  } catch (const Failure& failure) {
    note(failure.what());
    return static_cast<int>(failure.code());
  } catch (const Interrupted& interruption) {
    return interrupted + interruption.signal_number;
  } catch (const std::exception& failure) {
    note(failure.what());
    return static_cast<int>(ExitCode::failure);
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  Options options;
  if (const auto exit_code = parse_command_line(argc, argv, options)) {
    return *exit_code;
  }
  logging::set_log_mode(logging::LogMode::standard_error);
  // What the library has to say of its connection and of messages, the commands say in their own words.
  logging::configure_logging(options.verbose ? "DEBUG" : "EMERG");
  return exit_code_of(options);
}
