#include "uplink/uplink_settings.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/text/parse_number.h>

#include "common/fleet_message.h"

namespace ecu::uplink {

using tamu::config::Configuration;

namespace {

constexpr auto logger = tamu::logging::module("uplink");

struct Key {
  const char* name;
  const char* default_value;
};
constexpr Key keys[] = {
    {"bus_host", "localhost"},
    {"bus_port", "1883"},
    {"bus_username", ""},
    {"bus_password", ""},
    {"unit", ""},
    {"unit_variable", "serialnumber"},
    {"variables", "*"},
    {"prefix", tamu::com::topics::default_fleet_prefix},
    {"min_interval", "10"},
    {"refresh", "86400"},
    {"reconnect_spread", "30"},
    {"repeat_after", "0"},
};

/// Reads values and counts the faults.
class Reader {
 public:
  explicit Reader(const Configuration& config) : config_(config) {}

  [[nodiscard]] std::string text(const char* key) const { return config_.get(key); }

  std::uint32_t number(const char* key, std::uint32_t least, std::uint32_t most) {
    const std::string text = config_.get(key);
    const auto number = tamu::text::parse_number<std::uint32_t>(text);
    if (!number || *number < least || *number > most) {
      fault(key, "is not a number from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return number.value_or(0);
  }

  std::chrono::seconds seconds(const char* key, std::uint32_t least, std::uint32_t most) {
    return std::chrono::seconds(number(key, least, most));
  }

  std::string level(const char* key) {
    std::string text = config_.get(key);
    if (!tools::is_fleet_level(text)) {
      fault(key, tools::not_fleet_level);
    }
    return text;
  }

  /// An empty value counts as a missing key.
  void require(const char* key, const char* meaning) {
    if (config_.get(key).empty()) {
      is_valid_ = false;
      logger.error("key '", key, "' is missing: ", meaning);
    }
  }

  /// Never empty, because no pattern would match everything.
  std::vector<std::string> patterns(const char* key) {
    std::string text = config_.get(key);
    std::ranges::replace(text, ',', ' ');
    std::istringstream list(text);
    std::vector<std::string> patterns{std::istream_iterator<std::string>(list), {}};
    if (patterns.empty()) {
      fault(key, "names no variable");
    }
    return patterns;
  }

  void fault(const char* key, const std::string& text) {
    is_valid_ = false;
    const int line = config_.line_of(key);
    const std::string place = line > 0 ? "line " + std::to_string(line) + ": " : "";
    logger.error(place, "key '", key, "': '", config_.get(key), "' ", text);
  }

  [[nodiscard]] bool is_valid() const noexcept { return is_valid_; }

 private:
  const Configuration& config_;
  bool is_valid_ = true;
};

std::unique_ptr<Configuration> bus_configuration(Reader& reader) {
  auto bus = std::make_unique<Configuration>();
  bus->set_value("client_name", "uplink");
  bus->set_value("host", reader.text("bus_host"));
  bus->set_value("port", std::to_string(reader.number("bus_port", 1, 65535)));
  bus->set_value("username", reader.text("bus_username"));
  bus->set_value("password", reader.text("bus_password"));
  return bus;
}

// Null, after a line in the log, when the file cannot be opened.
std::unique_ptr<Configuration> fleet_configuration(const std::string& path) {
  std::ifstream file(path);
  if (!file) {
    logger.error("Unable to open configuration file ", path);
    return nullptr;
  }
  auto fleet = std::make_unique<Configuration>();
  for (const auto& [name, default_value] : keys) {
    fleet->register_key(name);
    fleet->set_default(name, default_value);
  }
  fleet->set_source_file(path);
  tamu::config::set_config_from_input(fleet, file);
  return fleet;
}

}  // namespace

std::optional<UplinkSettings> read_settings(const std::string& path) {
  constexpr std::uint32_t day = 24U * 60 * 60;
  UplinkSettings settings;
  settings.fleet = fleet_configuration(path);
  if (!settings.fleet) {
    return std::nullopt;
  }
  const bool is_well_formed = settings.fleet->verify();
  Reader reader(*settings.fleet);
  reader.require("host", "the address of the fleet's broker");
  settings.bus = bus_configuration(reader);
  settings.reconnect_spread = reader.seconds("reconnect_spread", 0, day);
  settings.repeat_after = reader.seconds("repeat_after", 0, day);
  settings.prefix = reader.level("prefix");
  settings.unit = reader.text("unit").empty() ? "" : reader.level("unit");
  settings.unit_variable = settings.unit.empty() ? reader.level("unit_variable") : "";
  settings.variables = reader.patterns("variables");
  settings.limits.min_interval = reader.seconds("min_interval", 0, day);
  settings.limits.refresh = reader.seconds("refresh", 0, 365 * day);
  if (!is_well_formed || !reader.is_valid()) {
    return std::nullopt;
  }
  settings.keepalive = std::chrono::seconds(std::stoi(settings.fleet->effective("keepalive")));
  return settings;
}

}  // namespace ecu::uplink
