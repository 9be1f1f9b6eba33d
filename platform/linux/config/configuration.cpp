#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include <ecu/tamu/config/configuration.h>
#include <ecu/tamu/logging/logging.h>

#include "posix/unique_fd.h"
#include "text/parse_number.h"

namespace ecu::tamu::config {

namespace {

constexpr auto logger = logging::module("tamu.config");

constexpr std::string_view password_key = "password";
constexpr std::string_view certificate_key = "certfile";
constexpr std::string_view private_key_key = "keyfile";

constexpr std::string_view built_in_keys[] = {"host",     "port",          "username",      password_key,
                                              "cafile",   certificate_key, private_key_key, "keepalive",
                                              "presence", "logmode",       "loglevel",      "client_name"};

constexpr std::string_view blanks = " \t\r\v\f";

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

bool is_readable_or_unset(const std::string& value) {
  if (value.empty()) {
    return true;
  }
  const posix::UniqueFd file(::open(value.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  return file && ::fstat(file.get(), &status) == 0 && !S_ISDIR(status.st_mode);
}

struct ValueRule {
  std::string_view key;
  bool (*is_met)(const std::string& value);
  std::string_view text;
};
constexpr ValueRule value_rules[] = {
    {"port", is_port, "is not a port, 1 to 65535"},
    {"keepalive", is_keepalive, "is not a time from 5 to 65535 seconds"},
    {"loglevel", is_level_or_unset, "is not a level, EMERG to DEBUG"},
    {"cafile", is_readable_or_unset, "is not a file that can be read"},
    {certificate_key, is_readable_or_unset, "is not a file that can be read"},
    {private_key_key, is_readable_or_unset, "is not a file that can be read"},
};

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
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
  if (key.empty() || key.find_first_of(blanks) != std::string_view::npos || !value) {
    return std::nullopt;
  }
  return std::pair(key, *value);
}

// As much of a text as a log line shows.
std::string_view clipped(std::string_view text) {
  constexpr std::size_t max_length = 256;
  return text.substr(0, max_length);
}

// As much of a malformed line as a log line may show: what comes after the first word may be a password.
std::string_view showable(std::string_view line) {
  return clipped(line.substr(0, std::min(line.find('='), line.find_first_of(blanks))));
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

bool Configuration::verify() const {
  bool faultless = true;
  if (read_failed_) {
    logger.error("'", source_file_, "' cannot be read to its end");
    faultless = false;
  }
  for (const auto& [line, text] : malformed_lines_) {
    logger.error("line ", line, ": '", text, "' does not begin a line of the form key = value");
    faultless = false;
  }
  for (const Entry& entry : entries_) {
    faultless &= verify_entry(entry);
  }
  faultless &= verify_pair(certificate_key, private_key_key);
  faultless &= verify_pair(private_key_key, certificate_key);
  warn_of_public_password();
  return faultless;
}

bool Configuration::verify_entry(const Entry& entry) const {
  const auto& [line, key, value] = entry;
  if (std::ranges::find(built_in_keys, key) == std::end(built_in_keys) && !registered_.contains(key)) {
    logger.error("line ", line, ": unknown key '", clipped(key), "'");
    return false;
  }
  bool faultless = true;
  if (const Entry* const first = find(key); first != &entry) {
    logger.error("line ", line, ": key '", key, "' is in line ", first->line, " already");
    faultless = false;
  }
  const auto* const rule = std::ranges::find(value_rules, key, &ValueRule::key);
  if (rule != std::end(value_rules) && !rule->is_met(value)) {
    logger.error("line ", line, ": key '", key, "': '", clipped(value), "' ", rule->text);
    faultless = false;
  }
  return faultless;
}

bool Configuration::verify_pair(std::string_view key, std::string_view partner) const {
  const Entry* const entry = find(key);
  if (entry == nullptr || entry->value.empty() || !get(std::string(partner)).empty()) {
    return true;
  }
  logger.error("line ", entry->line, ": key '", key, "' needs key '", partner, "' beside it");
  return false;
}

void Configuration::warn_of_public_password() const {
  struct stat status {};
  const Entry* const password = find(password_key);
  if (password != nullptr && ::stat(source_file_.c_str(), &status) == 0 && (status.st_mode & S_IROTH) != 0) {
    logger.warning("line ", password->line, ": key '", password_key, "' is in a file that anyone may read, '",
                   source_file_, "'");
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
