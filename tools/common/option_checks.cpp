#include "common/option_checks.h"

#include <unistd.h>

#include <ecu/tamu/com/topic.h>

namespace ecu::tools {

namespace {

constexpr double max_seconds = 1e6;

template <class Test>
CLI::Validator validator(Test is_valid, const std::string& expected) {
  return {[=](const std::string& text) { return is_valid(text) ? "" : "'" + text + "' is not " + expected; },
          ""};
}

auto consists_of(const char* characters) {
  return [=](const std::string& text) { return text.find_first_not_of(characters) == std::string::npos; };
}

}  // namespace

CLI::Validator is_number() {
  return validator(consists_of("0123456789.eE+-"), "a number");
}

CLI::Validator is_digits() {
  return validator(consists_of("0123456789"), "a number");
}

CLI::Validator is_positive_number() {
  return validator(
      [](const std::string& text) { return consists_of("0123456789")(text) && !consists_of("0")(text); },
      "a positive number");
}

CLI::Validator is_topic_filter() {
  return validator(tamu::com::is_topic_filter, "an MQTT topic filter");
}

CLI::Validator is_folder() {
  return validator(
      [](const std::string& text) { return !text.empty() && ::access((text + "/.").c_str(), F_OK) == 0; },
      "a folder");
}

CLI::Validator is_not_empty() {
  return validator([](const std::string& text) { return !text.empty(); }, "a value");
}

CLI::Option* add_text(CLI::App& command, const std::string& name, std::string& target,
                      const std::string& type, const std::string& purpose) {
  return command.add_option(name, target, purpose)->check(is_not_empty())->type_name(type);
}

void add_seconds(CLI::App& command, const std::string& name,
                 std::optional<std::chrono::duration<double>>& target, const std::string& purpose) {
  command
      .add_option_function<double>(
          name, [&target](double value) { target = std::chrono::duration<double>(value); }, purpose)
      ->check(is_number())
      ->check(CLI::Range(0.0, max_seconds))
      ->type_name("SECONDS");
}

void add_broker_options(CLI::App& app, BrokerOptions& options, const std::string& environment) {
  constexpr int max_port = 65'535;
  const auto add = [&](const std::string& name, std::string& target, const std::string& variable,
                       const std::string& type, const std::string& purpose) {
    CLI::Option* const option = add_text(app, name, target, type, purpose);
    return environment.empty() ? option : option->envname(environment + variable);
  };
  add("--host", options.host, "HOST", "ADDRESS",
      "the broker: HOST, HOST:PORT, mqtt://HOST, mqtts://HOST (TLS), or the absolute path of its Unix-domain "
      "socket, also after unix:; default localhost");
  add("-p,--port", options.port, "PORT", "PORT", "port of the broker; default 1883, with TLS 8883")
      ->check(is_digits())
      ->check(CLI::Range(1, max_port));
  add("--user", options.user, "USER", "NAME", "user name for the broker");
  add("--password-file", options.password_file, "PASSWORD_FILE", "FILE", "its first line is the password");
  add("--cafile", options.ca_file, "CAFILE", "FILE", "certificate authorities in PEM; turns TLS on");
  add("--cert", options.certificate_file, "CERT", "FILE", "the client's certificate");
  add("--key", options.key_file, "KEY", "FILE", "the client's key");
}

}  // namespace ecu::tools
