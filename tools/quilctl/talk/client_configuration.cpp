#include "quilctl/talk/client_configuration.h"

#include <fstream>
#include <random>

#include "common/input_file.h"
#include "quilctl/base/bounded_line.h"
#include "quilctl/base/failure.h"
#include "quilctl/base/hexadecimal.h"
#include "quilctl/talk/daemon_config_file.h"

namespace ecu::ctl {

using tamu::config::Configuration;

namespace {

constexpr std::size_t max_password_size = 65'535;  // MQTT 3.1.1, 3.1.3.5: its length has two bytes

std::string first_line_of(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  if (!read_line(file, line, max_password_size) && !file.eof()) {
    throw tools::input_error(path);
  }
  if (line.size() > max_password_size) {
    throw Failure(ExitCode::usage,
                  path + ": a password has at most " + std::to_string(max_password_size) + " bytes");
  }
  return line;
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

void require_readable(const std::string& path) {
  if (!path.empty() && !std::ifstream(path)) {
    throw tools::input_error(path);
  }
}

// The client ignores incomplete settings, and would connect without the encryption that the user asked for.
void require_complete_tls(const Configuration& config) {
  const auto given = [&config](const char* key) { return !config.effective(key).empty(); };
  if (given("certfile") != given("keyfile")) {
    throw Failure(ExitCode::usage, "a certificate needs its key, and a key its certificate");
  }
  if (given("certfile") && !given("cafile")) {
    throw Failure(ExitCode::usage, "a certificate needs TLS: give --cafile, too");
  }
}

void set_if_given(Configuration& config, const std::string& key, const std::string& value) {
  if (!value.empty()) {
    config.set_value(key, value);
  }
}

// The broker closes a connection when another client takes its identifier. A process identifier is unique on
// one machine only.
std::string new_client_identifier() {
  return "quilctl-" + to_hex_number(std::random_device()());
}

void set_tls(Configuration& config, const BrokerOptions& options) {
  for (const std::string& path : {options.ca_file, options.certificate_file, options.key_file}) {
    require_readable(path);
  }
  set_if_given(config, "cafile", options.ca_file);
  set_if_given(config, "certfile", options.certificate_file);
  set_if_given(config, "keyfile", options.key_file);
  require_complete_tls(config);
}

}  // namespace

std::unique_ptr<Configuration> client_configuration(const BrokerOptions& options) {
  auto config = options.config_file.empty() ? std::make_unique<Configuration>()
                                            : read_without_errors(options.config_file);
  config->set_value("client_name", new_client_identifier());
  config->set_value("presence", "no");
  set_if_given(*config, "host", options.host);
  set_if_given(*config, "port", options.port);
  set_if_given(*config, "username", options.user);
  set_tls(*config, options);
  if (!options.password_file.empty()) {
    if (config->effective("username").empty()) {
      throw Failure(ExitCode::usage, "a password needs a user: give --user, too");
    }
    config->set_value("password", first_line_of(options.password_file));
  }
  return config;
}

std::string broker_address(const Configuration& config) {
  const std::string host = config.effective("host");
  return host.front() == '/' ? host : host + ":" + config.effective("port");
}

}  // namespace ecu::ctl
