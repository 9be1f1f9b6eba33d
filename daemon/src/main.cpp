#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include <ecu/quil/environment_daemon.h>
#include <ecu/quil/options.h>
#include <ecu/quil/process.h>
#include <ecu/quil/settings.h>
#include <ecu/tamu/application.h>
#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/config/configuration.h>
#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/signal_mask.h>
#include <ecu/tamu/standard_streams.h>

namespace {

using namespace ecu::quil;
using ecu::tamu::config::Configuration;
namespace com = ecu::tamu::com;
namespace logging = ecu::tamu::logging;

std::unique_ptr<Configuration> read_configuration() {
  const std::string& given_path = options().config_path;
  const std::string path = given_path.empty() ? default_config_path : given_path;
  std::ifstream file(path);
  if (!file && !given_path.empty()) {
    logging::error("Unable to open configuration file!");
    std::exit(EXIT_FAILURE);
  }
  auto config = std::make_unique<Configuration>();
  if (file) {
    config->set_source_file(path);
    ecu::tamu::config::set_config_from_input(config, file);
  } else {
    logging::info("Using default configuration");
  }
  return config;
}

void choose_log_mode(const std::string& name) {
  if (const auto mode = log_mode_from_name(name)) {
    logging::set_log_mode(*mode);
  } else {
    logging::notice("logmode from config '", name, "' not recognized");
  }
}

void configure_logging(const Configuration& config) {
  const std::string mode = config.get("logmode");
  if (!mode.empty() && !options().log_to_stdout) {
    choose_log_mode(mode);
  }
  const std::string level = options().log_level.empty() ? config.get("loglevel") : options().log_level;
  if (!level.empty()) {
    logging::configure_logging(level);
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  ecu::tamu::open_standard_streams();
  ecu::tamu::block_failed_write_signals();
  if (!parse_opts(argc, argv)) {
    usage();
    return EXIT_FAILURE;
  }
  limit_kept_memory();
  log_uncaught_exceptions();
  com::library_init();
  ecu::tamu::application_starting();
  logging::configure_logging(options().log_level);
  logging::debug("Register unix signal handler");
  install_signal_handler();

  std::unique_ptr<Configuration> config = read_configuration();
  fill_in_defaults(*config);
  configure_logging(*config);
  if (!config->verify()) {
    return EXIT_FAILURE;
  }

  ProcessHolder& holder = process();
  holder.client = com::create_client(config, com::TransportType::mqtt);
  holder.client->connect();
  holder.daemon = std::make_shared<EnvironmentDaemon>(holder.client, config);
  holder.daemon->init();
  holder.client->start();
  holder.daemon->initial_publish();
  ecu::tamu::application_ready();
  holder.client->run();

  com::library_cleanup();
  holder.daemon.reset();
  holder.client.reset();
  return EXIT_SUCCESS;
}
