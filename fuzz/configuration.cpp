#include <fuzzer/FuzzedDataProvider.h>

#include <map>
#include <sstream>
#include <string>

#include <ecu/quil/settings.h>
#include <ecu/tamu/config/configuration.h>

#include "fuzz/fuzz.h"

// Reads a configuration and compares its values with those of a plain reading, line by line.
namespace {

using ecu::tamu::config::Configuration;

constexpr std::string_view blanks = " \t\r\v\f";
constexpr std::string_view password = "correct horse battery staple";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(blanks);
  return first == std::string_view::npos ? std::string_view()
                                         : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// The first value of each key in the well-formed lines.
std::map<std::string, std::string> read(const std::string& text) {
  std::map<std::string, std::string> values;
  std::istringstream input(text);
  for (std::string whole; std::getline(input, whole);) {
    const std::string_view line = trimmed(whole);
    const std::size_t assign = line.find('=');
    if (line.empty() || line.front() == '#' || assign == std::string_view::npos ||
        whole.find('\0') != std::string::npos) {
      continue;
    }
    const std::string_view key = trimmed(line.substr(0, assign));
    std::string_view value = trimmed(line.substr(assign + 1));
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
      value = value.substr(1, value.size() - 2);
    }
    if (!key.empty() && key.find_first_of(blanks) == std::string_view::npos &&
        key.find('"') == std::string_view::npos && value.find('"') == std::string_view::npos) {
      values.emplace(key, value);
    }
  }
  return values;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::silence();
  FuzzedDataProvider input(data, size);
  const std::string before = input.ConsumeRandomLengthString(2048);
  const std::string text =
      before + "\npassword = " + std::string(password) + "\n" + input.ConsumeRemainingBytesAsString();
  std::istringstream stream(text);
  auto config = std::make_unique<Configuration>();
  ecu::tamu::config::set_config_from_input(config, stream);
  for (const auto& [key, value] : read(text)) {
    fuzz::require(config->get(key) == value, "a key has its first value");
    fuzz::require(config->line_of(key) > 0, "a key has a line");
  }
  ecu::quil::fill_in_defaults(*config);
  // The fuzzer may find it out and set another key to it.
  const bool password_stands_once = text.find(password) == text.rfind(password);
  bool fit = true;
  for (const auto& fault : config->faults()) {
    fit = fit && fault.is_warning;
    fuzz::require(!fault.text.empty() && fault.line >= 0, "a fault says what and where");
    fuzz::require(!password_stands_once || fault.text.find(password) == std::string::npos,
                  "no fault shows the password");
  }
  fuzz::require(config->verify() == fit, "faults and verification agree");
  for (const std::string& key : config->keys()) {
    (void)config->effective(key);
  }
  return 0;
}
