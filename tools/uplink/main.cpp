#include <CLI/CLI.hpp>
#include <cstdlib>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include <ecu/tamu/application.h>
#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/signal_mask.h>
#include <ecu/tamu/standard_streams.h>

#include "common/notes.h"
#include "common/termination.h"
#include "common/usage_error.h"
#include "common/version.h"
#include "uplink/uplink.h"
#include "uplink/uplink_settings.h"

namespace {

using namespace ecu::uplink;
namespace logging = ecu::tamu::logging;

struct Options {
  std::string config_path = "/etc/morn/tolquil-uplink.conf";
  std::string log_level;
  bool check_only = false;
};

// Used by the signal handler, which runs only on the main thread, inside Uplink::run.
Uplink* running = nullptr;

// The exit code, when there is nothing left to do.
std::optional<int> parse_command_line(int argc, char* argv[], Options& options) {
  CLI::App app("Sends the variables of a telematics unit to the MQTT broker of its fleet.", "tolquil-uplink");
  app.add_option("-c,--config", options.config_path, "configuration file")->capture_default_str();
  app.add_option("-l,--loglevel", options.log_level, "overrides the file's: EMERG to DEBUG");
  app.add_flag("--check", options.check_only, "check the configuration and exit: 0 if it is valid");
  app.set_version_flag("-V,--version", ecu::tools::release_version());
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& end) {
    return app.exit(end);
  } catch (const CLI::ParseError& error) {
    ecu::tools::report_usage_error(app, error, std::span(argv, static_cast<std::size_t>(argc)));
    return EXIT_FAILURE;
  }
  return std::nullopt;
}

int run(const Options& options) {
  std::optional<UplinkSettings> settings = read_settings(options.config_path);
  if (!settings) {
    return EXIT_FAILURE;
  }
  logging::configure_logging(options.log_level.empty() ? settings->fleet->get("loglevel")
                                                       : options.log_level);
  if (options.check_only) {
    return EXIT_SUCCESS;
  }
  Uplink uplink(std::move(*settings));
  running = &uplink;
  ecu::tools::stop_on_termination([] { running->stop(); });
  uplink.start();
  ecu::tamu::application_ready();
  uplink.run();
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char* argv[]) try {
  ecu::tamu::open_standard_streams();
  Options options;
  if (const auto exit_code = parse_command_line(argc, argv, options)) {
    return *exit_code;
  }
  ecu::tamu::block_signals(ecu::tamu::termination_signals());
  ecu::tamu::block_failed_write_signals();
  logging::set_log_mode(logging::LogMode::standard_error);
  ecu::tamu::application_starting();
  ecu::tamu::com::library_init();
  const int exit_code = run(options);
  ecu::tamu::com::library_cleanup();
  return exit_code;
} catch (const std::exception& failure) {
  ecu::tools::note(failure.what());
  return EXIT_FAILURE;
}
