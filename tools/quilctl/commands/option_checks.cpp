#include "quilctl/commands/option_checks.h"

#include <ecu/tamu/com/topic.h>

namespace ecu::ctl {

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

CLI::Validator is_not_empty() {
  return validator([](const std::string& text) { return !text.empty(); }, "a value");
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

}  // namespace ecu::ctl
