#include "quilctl/talk/client_configuration.h"

#include <cerrno>
#include <fstream>
#include <random>
#include <sstream>

#include <ecu/quil/settings.h>

#include "common/hexadecimal.h"
#include "common/input_file.h"

namespace ecu::ctl {

using tamu::config::Configuration;

namespace {

bool names_broker(const BrokerOptions& options) {
  return !options.config_file.empty() || !options.host.empty() || !options.port.empty();
}

std::string config_file_of(const BrokerOptions& options) {
  return names_broker(options) || !std::ifstream(options.unit_config_file) ? options.config_file
                                                                           : options.unit_config_file;
}

std::unique_ptr<Configuration> read_without_errors(const std::string& path) {
  auto config = read_configuration(path);
  for (const tamu::config::Fault& fault : config->faults()) {
    if (!fault.is_warning) {
      const std::string line = fault.line > 0 ? ":" + std::to_string(fault.line) : "";
      throw Failure(ExitCode::usage, path + line + ": " + fault.text);
    }
  }
  return config;
}

}  // namespace

std::unique_ptr<Configuration> read_configuration(const std::string& path) {
  constexpr std::size_t max_size = std::size_t{1024} * 1024;
  std::istringstream text(tools::read_file(path, max_size));
  auto config = std::make_unique<Configuration>();
  config->set_source_file(path);
  tamu::config::set_config_from_input(config, text);
  quil::fill_in_defaults(*config);
  return config;
}

std::unique_ptr<Configuration> client_configuration(const BrokerOptions& options) {
  const std::string file = config_file_of(options);
  auto config = file.empty() ? std::make_unique<Configuration>() : read_without_errors(file);
  // The broker closes a connection when another client takes its identifier. A process identifier is unique
  // on one machine only.
  config->set_value("client_name", "quilctl-" + tools::to_hex_number(std::random_device()()));
  config->set_value("presence", "no");
  tools::apply(options, *config);
  return config;
}

std::string unread_file_hint(const BrokerOptions& options) {
  const std::string& file = options.unit_config_file;
  if (names_broker(options) || file.empty() || std::ifstream(file) || errno == ENOENT) {
    return "";
  }
  return "; " + std::string(tools::input_error(file).what()) + ", and it may name another broker";
}

std::string address_origin(const BrokerOptions& options, const Configuration& config) {
  if (!options.host.empty()) {
    return options.host_is_inherited ? "QUILCTL_HOST" : "--host";
  }
  return config.line_of("host") > 0 ? config_file_of(options) : "default";
}

}  // namespace ecu::ctl
