#include "quilctl/talk/config_file.h"

#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>

#include <ecu/quil/settings.h>

namespace ecu::ctl {

using tamu::config::Configuration;

namespace {

constexpr std::size_t max_size = std::size_t{1024} * 1024;

std::string text_of(const std::string& path, ExitCode unreadable) {
  std::ifstream file(path);
  std::string text(max_size + 1, '\0');
  if (!file.read(text.data(), static_cast<std::streamsize>(text.size())) && !file.eof()) {
    throw Failure(unreadable, path + ": " + std::generic_category().message(errno));
  }
  text.resize(static_cast<std::size_t>(file.gcount()));
  if (text.size() > max_size) {
    throw Failure(unreadable, path + ": a configuration has at most " + std::to_string(max_size) + " bytes");
  }
  return text;
}

}  // namespace

std::unique_ptr<Configuration> read_configuration(const std::string& path, ExitCode unreadable) {
  std::istringstream text(text_of(path, unreadable));
  auto config = std::make_unique<Configuration>();
  config->set_source_file(path);
  tamu::config::set_config_from_input(config, text);
  quil::fill_in_defaults(*config);
  return config;
}

}  // namespace ecu::ctl
