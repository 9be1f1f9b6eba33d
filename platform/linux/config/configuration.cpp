#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include <ecu/tamu/config/configuration.h>
#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/text/parse_number.h>

#include "posix/regular_file.h"

namespace ecu::tamu::config {

namespace {

constexpr auto logger = logging::module("tamu.config");

constexpr std::string_view password_key = "password";
constexpr std::string_view authority_key = "cafile";
constexpr std::string_view certificate_key = "certfile";
constexpr std::string_view private_key_key = "keyfile";

struct BuiltInKey {
  std::string_view key;
  std::string_view default_value;  // the logging library has the default of the level
};
constexpr std::string_view level_key = "loglevel";
constexpr BuiltInKey built_in_keys[] = {
    {"host", "localhost"}, {"port", "1883"},      {"username", ""},      {password_key, ""},
    {authority_key, ""},   {certificate_key, ""}, {private_key_key, ""}, {"keepalive", "60"},
    {"presence", "yes"},   {"logmode", "syslog"}, {level_key, ""},       {"client_name", ""},
};

Fault error_in(int line, std::string text) {
  return {line, false, std::move(text)};
}

constexpr std::string_view white_space = " \t\r\v\f";

bool is_number_within(std::string_view value, std::uint64_t from, std::uint64_t to) {
  const std::optional<std::uint64_t> number = text::parse_number(value);
  return number && from <= *number && *number <= to;
}

bool is_port(const std::string& value) {
  return is_number_within(value, 1, 65535);
}

bool is_keepalive(const std::string& value) {
  return is_number_within(value, 5, 65535);
}

bool is_level_or_unset(const std::string& value) {
  return value.empty() || logging::level_from_name(value);
}

bool is_switch_or_unset(const std::string& value) {
  return value.empty() || value == "yes" || value == "no";
}

bool is_readable_or_unset(const std::string& value) {
  return value.empty() || posix::why_unreadable(value).empty();
}

struct ValueRule {
  std::string_view key;
  bool (*is_met)(const std::string& value);
  std::string_view text;
  bool is_warning = false;
};
constexpr ValueRule value_rules[] = {
    {"port", is_port, "is not a port, 1 to 65535"},
    {"keepalive", is_keepalive, "is not a time from 5 to 65535 seconds"},
    {"presence", is_switch_or_unset, "is neither yes nor no, and counts as yes", true},
    {level_key, is_level_or_unset, "is not a level, EMERG to DEBUG"},
    {authority_key, is_readable_or_unset, "is not a file that can be read"},
    {certificate_key, is_readable_or_unset, "is not a file that can be read"},
    {private_key_key, is_readable_or_unset, "is not a file that can be read"},
};

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(white_space);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(white_space) - first + 1);
}

std::optional<std::string_view> unquoted(std::string_view text) {
  constexpr char quote = '"';
  if (text.size() >= 2 && text.front() == quote && text.back() == quote) {
    text = text.substr(1, text.size() - 2);
  }
  return text.find(quote) == std::string_view::npos ? std::optional(text) : std::nullopt;
}

std::optional<std::pair<std::string_view, std::string_view>> split(std::string_view line) {
  const std::size_t separator = line.find('=');
  if (separator == std::string_view::npos || line.find('\0') != std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view key = trimmed(line.substr(0, separator));
  const std::optional<std::string_view> value = unquoted(trimmed(line.substr(separator + 1)));
  if (key.empty() || key.find_first_of(white_space) != std::string_view::npos || !value) {
    return std::nullopt;
  }
  return std::pair(key, *value);
}

// The part of a text that a log line shows.
std::string_view clipped(std::string_view text) {
  constexpr std::size_t max_length = 256;
  return text.substr(0, max_length);
}

// The part of a malformed line that a log line may show: anything after the first word may be a password.
std::string_view showable(std::string_view line) {
  return clipped(line.substr(0, std::min(line.find('='), line.find_first_of(white_space))));
}

}  // namespace

std::string Configuration::get(const std::string& key) const {
  if (const auto stored = stored_.find(key); stored != stored_.end()) {
    return stored->second;
  }
  if (const Entry* const entry = find(key)) {
    return entry->value;
  }
  const auto preset = defaults_.find(key);
  return preset == defaults_.end() ? std::string() : preset->second;
}

std::string Configuration::effective(const std::string& key) const {
  std::string value = get(key);
  if (!value.empty()) {
    return value;
  }
  if (key == level_key) {
    return std::string(logging::get_default_log_level_name());
  }
  const auto* const built_in = std::ranges::find(built_in_keys, key, &BuiltInKey::key);
  return built_in == std::end(built_in_keys) ? std::string() : std::string(built_in->default_value);
}

int Configuration::line_of(std::string_view key) const {
  const Entry* const entry = find(key);
  return entry == nullptr ? 0 : entry->line;
}

std::vector<std::string> Configuration::keys() const {
  std::vector<std::string> keys;
  for (const BuiltInKey& built_in : built_in_keys) {
    keys.emplace_back(built_in.key);
  }
  keys.insert(keys.end(), registered_.begin(), registered_.end());
  return keys;
}

void Configuration::set_value(const std::string& key, std::string value) {
  stored_[key] = std::move(value);
}

void Configuration::register_key(const std::string& key) {
  registered_.insert(key);
}

void Configuration::set_default(const std::string& key, std::string value) {
  defaults_[key] = std::move(value);
}

void Configuration::set_source_file(std::string path) {
  source_file_ = std::move(path);
}

std::vector<Fault> Configuration::faults() const {
  std::vector<Fault> faults;
  if (read_failed_) {
    faults.push_back(error_in(0, "'" + source_file_ + "' cannot be read to its end"));
  }
  for (const auto& [line, text] : malformed_lines_) {
    faults.push_back(error_in(line, "'" + text + "' does not begin a line of the form key = value"));
  }
  for (const Entry& entry : entries_) {
    check_entry(entry, faults);
  }
  check_pair(certificate_key, private_key_key, faults);
  check_pair(private_key_key, certificate_key, faults);
  check_encryption(faults);
  check_access(faults);
  return faults;
}

bool Configuration::verify() const {
  bool faultless = true;
  for (const auto& [line, is_warning, text] : faults()) {
    const std::string place = line == 0 ? "" : "line " + std::to_string(line) + ": ";
    logger.log(is_warning ? logging::Level::warning : logging::Level::error, place, text);
    faultless = faultless && is_warning;
  }
  return faultless;
}

void Configuration::check_entry(const Entry& entry, std::vector<Fault>& faults) const {
  const auto& [line, key, value] = entry;
  if (std::ranges::find(built_in_keys, key, &BuiltInKey::key) == std::end(built_in_keys) &&
      !registered_.contains(key)) {
    faults.push_back(error_in(line, "unknown key '" + std::string(clipped(key)) + "'"));
    return;
  }
  if (const Entry* const first = find(key); first != &entry) {
    faults.push_back(
        error_in(line, "key '" + key + "' is already set in line " + std::to_string(first->line)));
  }
  const auto* const rule = std::ranges::find(value_rules, key, &ValueRule::key);
  if (rule != std::end(value_rules) && !rule->is_met(value)) {
    faults.push_back({line, rule->is_warning,
                      "key '" + key + "': '" + std::string(clipped(value)) + "' " + std::string(rule->text)});
  }
}

bool Configuration::is_set(std::string_view key) const {
  const std::string value = get(std::string(key));
  return !value.empty();
}

void Configuration::check_pair(std::string_view key, std::string_view partner,
                               std::vector<Fault>& faults) const {
  const Entry* const entry = find(key);
  if (entry != nullptr && !entry->value.empty() && !is_set(partner)) {
    faults.push_back(
        error_in(entry->line, "key '" + entry->key + "' requires key '" + std::string(partner) + "'"));
  }
}

void Configuration::check_encryption(std::vector<Fault>& faults) const {
  const Entry* const certificate = find(certificate_key);
  if (certificate != nullptr && is_set(certificate_key) && is_set(private_key_key) &&
      !is_set(authority_key)) {
    faults.push_back({certificate->line, true,
                      "key 'certfile' has no effect without key 'cafile': the connection is not encrypted"});
  }
}

void Configuration::check_access(std::vector<Fault>& faults) const {
  struct stat status {};
  if (::stat(source_file_.c_str(), &status) != 0 || (status.st_mode & S_IROTH) == 0) {
    return;
  }
  for (const auto& [line, key, value] : entries_) {
    if (key.ends_with(password_key)) {
      faults.push_back(
          {line, true, "key '" + key + "' is in the world-readable file '" + source_file_ + "'"});
    }
  }
}

void Configuration::read(std::istream& input) {
  int number = 0;
  for (std::string line; std::getline(input, line);) {
    ++number;
    const std::string_view text = trimmed(line);
    if (text.empty() || text.front() == '#') {
      continue;
    }
    if (const auto pair = split(text)) {
      entries_.push_back({number, std::string(pair->first), std::string(pair->second)});
    } else {
      malformed_lines_.emplace_back(number, showable(text));
    }
  }
  read_failed_ = input.bad();
}

const Configuration::Entry* Configuration::find(std::string_view key) const {
  const auto entry = std::ranges::find(entries_, key, &Entry::key);
  return entry == entries_.end() ? nullptr : &*entry;
}

void set_config_from_input(std::unique_ptr<Configuration>& config, std::istream& input) {
  config->read(input);
}

}  // namespace ecu::tamu::config
