#include <ecu/quil/settings.h>

namespace ecu::quil {

using tamu::logging::LogMode;

void fill_in_defaults(tamu::config::Configuration& config) {
  config.set_value("client_name", "quil");
  config.register_key("qpread");
  config.set_default("qpread", "/dev/qport/telematics_param_receive");
  config.register_key("qpwrite");
  config.set_default("qpwrite", "/dev/qport/telematics_param_send");
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
