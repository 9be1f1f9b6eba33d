#include "quilctl/model/values.h"

#include <array>
#include <ctime>
#include <iostream>

#include "quilctl/base/text.h"

namespace ecu::ctl {

namespace {

std::string with_milliseconds(std::chrono::system_clock::time_point at, const std::tm& parts,
                              const char* format, const char* end) {
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(at.time_since_epoch()).count() % 1000;
  std::array<char, 64> text{};
  std::string result(text.data(), std::strftime(text.data(), text.size(), format, &parts));
  const std::string digits = std::to_string(1000 + ms);
  return result + "." + digits.substr(1) + end;
}

}  // namespace

Json json_value(const std::optional<std::string>& value) {
  if (!value) {
    return nullptr;
  }
  return is_utf8(*value) ? Json(*value) : Json{{"hex", to_hex(*value)}};
}

std::string shown_value(const std::optional<std::string>& value) {
  if (!value) {
    return "(no value)";
  }
  return value->empty() ? "\"\"" : printable(*value);
}

void print_value(const Options& options, const std::string& value) {
  if (options.raw) {
    std::cout << value;
  } else {
    std::cout << printable(value) << '\n';
  }
}

void print_json(const Json& object) {
  std::cout << object.dump() << std::endl;
}

std::string iso_time(std::chrono::system_clock::time_point at) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(at);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  return with_milliseconds(at, parts, "%FT%T", "Z");
}

std::string local_time(std::chrono::system_clock::time_point at) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(at);
  std::tm parts{};
  ::localtime_r(&seconds, &parts);
  return with_milliseconds(at, parts, "%F %T", "");
}

}  // namespace ecu::ctl
