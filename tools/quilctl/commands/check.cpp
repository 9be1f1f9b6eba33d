#include <algorithm>
#include <iostream>
#include <memory>
#include <vector>

#include <ecu/quil/settings.h>
#include <ecu/tamu/config/configuration.h>

#include "common/escaping.h"
#include "common/input_file.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/values.h"
#include "quilctl/talk/client_configuration.h"

namespace ecu::ctl {

using tamu::config::Configuration;
using tamu::config::Fault;

namespace {

constexpr const char* password_key = "password";
constexpr const char* log_mode_key = "logmode";

// The errors that keep the daemon from starting, and its warnings, by line.
std::vector<Fault> faults_of(const Configuration& config) {
  std::vector<Fault> faults = config.faults();
  const std::string mode = config.effective(log_mode_key);
  if (!quil::log_mode_from_name(mode)) {
    faults.push_back(
        {config.line_of(log_mode_key), true,
         std::string("key '") + log_mode_key + "': '" + mode + "' is not one of syslog, stdout, stderr"});
  }
  std::ranges::stable_sort(faults, {}, &Fault::line);
  return faults;
}

void print(const Options& options, const Fault& fault) {
  const char* const level = fault.is_warning ? "warning" : "error";
  if (options.json) {
    print_json({{"file", json_value(options.file)},
                {"line", fault.line},
                {"level", level},
                {"text", tools::printable(fault.text)}});
    return;
  }
  std::cout << options.file << ':' << (fault.line > 0 ? std::to_string(fault.line) + ':' : "") << ' ' << level
            << ": " << tools::printable(fault.text) << '\n';
}

void print_setting(const Options& options, const std::string& key, const std::string& value) {
  const bool is_secret = key == password_key && !value.empty();
  const std::string shown = is_secret ? "(set)" : value;
  if (options.json) {
    print_json({{"key", key}, {"value", json_value(shown)}});
  } else {
    std::cout << key << " = " << tools::printable(shown) << '\n';
  }
}

std::unique_ptr<Configuration> read(const std::string& path) {
  try {
    return read_configuration(path);
  } catch (const tools::InputError& error) {
    throw Failure(ExitCode::failure, error.what());
  }
}

}  // namespace

ExitCode check(const Options& options) {
  const std::unique_ptr<Configuration> config = read(options.file);
  bool usable = true;
  for (const Fault& fault : faults_of(*config)) {
    print(options, fault);
    usable = usable && fault.is_warning;
  }
  if (!usable) {
    return ExitCode::failure;
  }
  for (const std::string& key : config->keys()) {
    print_setting(options, key, config->effective(key));
  }
  return ExitCode::done;
}

}  // namespace ecu::ctl
