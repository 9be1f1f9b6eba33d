#include "common/times.h"

#include <array>
#include <ctime>
#include <string_view>

#include <ecu/tamu/text/parse_number.h>

namespace ecu::tools {

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

// Not std::chrono::system_clock::now: on 32 bits its library reads the clock that ends in 2038.
std::chrono::system_clock::time_point wall_clock_now() {
  std::timespec time{};
  ::clock_gettime(CLOCK_REALTIME, &time);
  return std::chrono::system_clock::time_point(std::chrono::seconds(time.tv_sec) +
                                               std::chrono::nanoseconds(time.tv_nsec));
}

std::string iso_time(std::chrono::system_clock::time_point at) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(at);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  return with_milliseconds(at, parts, "%FT%T", "Z");
}

std::optional<std::chrono::system_clock::time_point> from_iso_time(const std::string& text) {
  constexpr int first_year = 70, last_year = 361;  // since 1900
  std::tm parts{};
  const char* const end = ::strptime(text.c_str(), "%FT%T.", &parts);
  if (end == nullptr || parts.tm_year < first_year || parts.tm_year > last_year) {
    return std::nullopt;
  }
  const auto ms = tamu::text::parse_number<unsigned>(std::string_view(end).substr(0, 3)).value_or(0);
  const auto time = std::chrono::system_clock::from_time_t(::timegm(&parts)) + std::chrono::milliseconds(ms);
  return iso_time(time) == text ? std::optional(time) : std::nullopt;
}

std::string local_time(std::chrono::system_clock::time_point at) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(at);
  std::tm parts{};
  ::localtime_r(&seconds, &parts);
  return with_milliseconds(at, parts, "%F %T", "");
}

std::string age_text(std::chrono::nanoseconds age) {
  using namespace std::chrono;
  const auto in = [age]<class Unit>(Unit /*one*/, const char* name) {
    return std::to_string(floor<Unit>(age).count()) + name;
  };
  return age < minutes(1) ? in(seconds(1), " s")
         : age < hours(1) ? in(minutes(1), " min")
         : age < days(1)  ? in(hours(1), " h")
                          : in(days(1), " d");
}

}  // namespace ecu::tools
