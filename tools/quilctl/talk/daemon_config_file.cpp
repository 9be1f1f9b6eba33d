#include "quilctl/talk/daemon_config_file.h"

#include <sstream>

#include <ecu/quil/settings.h>

#include "common/input_file.h"

namespace ecu::ctl {

using tamu::config::Configuration;

std::unique_ptr<Configuration> read_configuration(const std::string& path) {
  constexpr std::size_t max_size = std::size_t{1024} * 1024;
  std::istringstream text(tools::read_file(path, max_size));
  auto config = std::make_unique<Configuration>();
  config->set_source_file(path);
  tamu::config::set_config_from_input(config, text);
  quil::fill_in_defaults(*config);
  return config;
}

}  // namespace ecu::ctl
