#include <string>

#include <ecu/quil/settings.h>
#include <ecu/tamu/com/port_names.h>

namespace ecu::quil {

namespace port_names = tamu::com::port_names;
using tamu::logging::LogMode;

void fill_in_defaults(tamu::config::Configuration& config) {
  const std::string port_folder = std::string(port_names::device_folder) + '/';
  config.set_value("client_name", "quil");
  config.register_key("qpread");
  config.set_default("qpread", port_folder + port_names::parameter_receive);
  config.register_key("qpwrite");
  config.set_default("qpwrite", port_folder + port_names::parameter_send);
}

std::optional<LogMode> log_mode_from_name(std::string_view name) noexcept {
  if (name == "stdout") {
    return LogMode::standard_output;
  }
  if (name == "stderr") {
    return LogMode::standard_error;
  }
  return name == "syslog" ? std::optional(LogMode::syslog) : std::nullopt;
}

}  // namespace ecu::quil
