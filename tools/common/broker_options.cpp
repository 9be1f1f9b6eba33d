#include "common/broker_options.h"

#include <algorithm>
#include <fstream>
#include <string_view>

#include <ecu/tamu/text/parse_number.h>

#include "common/bounded_line.h"

namespace ecu::tools {

using tamu::config::Configuration;

namespace {

constexpr std::size_t max_password_size = 65'535;  // MQTT 3.1.1, 3.1.3.5: its length has two bytes
constexpr std::size_t max_pem_size = std::size_t{16} * 1024 * 1024;
constexpr const char* tls_port = "8883";
constexpr const char* system_authorities = "/etc/ssl/certs/ca-certificates.crt";

std::string first_line_of(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  if (!read_line(file, line, max_password_size) && !file.eof()) {
    throw input_error(path);
  }
  if (line.size() > max_password_size) {
    throw InputError(path + ": a password has at most " + std::to_string(max_password_size) + " bytes");
  }
  return line;
}

// The TLS library's own texts, such as "no start line", would not help the user, nor would its questions for
// a pass phrase.
void require_pem(const std::string& path, const std::string& content) {
  if (path.empty()) {
    return;
  }
  const std::string text = read_file(path, max_pem_size);
  const std::size_t begin = text.find("-----BEGIN ");
  if (begin == std::string::npos || text.find(content + "-----", begin) == std::string::npos) {
    throw BrokerOptionsError(path + ": no " + (content == "KEY" ? "private key" : "certificate") +
                             " in PEM format");
  }
  if (text.find("ENCRYPTED") != std::string::npos) {  // no text in base64 is likely to contain it
    throw BrokerOptionsError(path + ": encrypted keys are not supported");
  }
}

void set_if_given(Configuration& config, const std::string& key, const std::string& value) {
  if (!value.empty()) {
    config.set_value(key, value);
  }
}

// The client ignores incomplete settings, and would connect without the encryption that the user asked for.
void require_complete_tls(const Configuration& config) {
  const auto given = [&config](const char* key) { return !config.effective(key).empty(); };
  if (given("certfile") != given("keyfile")) {
    throw BrokerOptionsError("a certificate needs its key, and a key its certificate");
  }
  if (given("certfile") && !given("cafile")) {
    throw BrokerOptionsError("a certificate needs TLS: give --cafile, too");
  }
}

void set_tls(const BrokerOptions& options, Configuration& config, bool is_tls) {
  set_if_given(config, "cafile", options.ca_file);
  if (is_tls && config.effective("cafile").empty()) {
    if (!std::ifstream(system_authorities)) {
      throw BrokerOptionsError("TLS needs certificate authorities: give --cafile");
    }
    config.set_value("cafile", system_authorities);
  }
  set_if_given(config, "certfile", options.certificate_file);
  set_if_given(config, "keyfile", options.key_file);
  require_pem(config.effective("cafile"), "CERTIFICATE");
  require_pem(config.effective("certfile"), "CERTIFICATE");
  require_pem(config.effective("keyfile"), "KEY");
  require_complete_tls(config);
}

void set_login(const BrokerOptions& options, Configuration& config) {
  if (!options.user.empty()) {
    config.set_value("username", options.user);
    config.set_value("password", "");  // belongs to another user
  }
  if (!options.password_file.empty()) {
    if (config.effective("username").empty()) {
      throw BrokerOptionsError("a password needs a user: give --user, too");
    }
    config.set_value("password", first_line_of(options.password_file));
  }
}

bool is_port(std::string_view text) {
  return tamu::text::parse_number<std::uint16_t>(text).value_or(0) != 0;
}

bool take_prefix(std::string_view& text, std::string_view prefix) {
  const bool has_prefix = text.starts_with(prefix);
  text.remove_prefix(has_prefix ? prefix.size() : 0);
  return has_prefix;
}

}  // namespace

BrokerAddress parse_broker_address(const std::string& text) {
  std::string_view rest = text;
  const bool is_unix = take_prefix(rest, "unix:");
  if (is_unix) {
    take_prefix(rest, "//");
  }
  if (rest.starts_with('/')) {
    return {std::string(rest), "", false};
  }
  if (rest.find('@') != std::string_view::npos) {  // the text may contain a password
    throw BrokerOptionsError("invalid address: it has a login; use --user and --password-file");
  }
  const bool has_slash = rest.find('/') != std::string_view::npos;
  if (is_unix || (has_slash && rest.find("://") == std::string_view::npos)) {
    throw BrokerOptionsError("invalid address '" + text + "': the path of a socket begins with '/'");
  }
  BrokerAddress address;
  address.is_tls = take_prefix(rest, "mqtts://");
  const bool is_url = address.is_tls || take_prefix(rest, "mqtt://");
  if (is_url && rest.ends_with('/')) {
    rest.remove_suffix(1);
  }
  const bool in_brackets = take_prefix(rest, "[");
  // More than one colon without brackets: an IPv6 address without port.
  const std::size_t end = in_brackets                         ? rest.find(']')
                          : rest.find(':') == rest.rfind(':') ? rest.find(':')
                                                              : std::string_view::npos;
  address.host = rest.substr(0, end);
  rest.remove_prefix(
      std::min(rest.size(), end == std::string_view::npos ? end : end + (in_brackets ? 1 : 0)));
  const bool has_port = take_prefix(rest, ":");
  address.port = rest;
  if (address.host.empty() || address.host.find_first_of("/[] ") != std::string::npos ||
      (in_brackets && end == std::string_view::npos) || (has_port ? !is_port(rest) : !rest.empty())) {
    throw BrokerOptionsError("invalid address '" + text +
                             "': use HOST, HOST:PORT, [IPV6]:PORT, mqtt://HOST, " +
                             "mqtts://HOST, unix:PATH, or the absolute path of a socket");
  }
  return address;
}

void apply(const BrokerOptions& options, Configuration& config) {
  const BrokerAddress address = options.host.empty() ? BrokerAddress() : parse_broker_address(options.host);
  set_if_given(config, "host", address.host);
  set_tls(options, config, address.is_tls);
  const bool asks_for_tls = address.is_tls || !options.ca_file.empty();
  if (asks_for_tls && (!options.host.empty() || config.line_of("port") == 0)) {
    config.set_value("port", tls_port);
  }
  set_if_given(config, "port", options.port);
  set_if_given(config, "port", address.port);
  set_login(options, config);
}

std::string broker_address(const Configuration& config) {
  const std::string host = config.effective("host");
  return host.front() == '/'                   ? host
         : host.find(':') == std::string::npos ? host + ":" + config.effective("port")
                                               : "[" + host + "]:" + config.effective("port");
}

}  // namespace ecu::tools
