#include "quilctl/model/line_format.h"

#include "common/escaping.h"
#include "common/times.h"

namespace ecu::ctl {

namespace {

// Nothing for an unknown field.
std::optional<std::string> field_of(std::string_view field, const VariableRow& row, const UnitClock& clock,
                                    bool raw) {
  const auto age = row.age(clock);
  if (field == "name") {
    return tools::printable(row.name);
  }
  if (field == "value") {
    const std::string value = row.value().value_or("");
    return raw ? value : tools::printable(value);
  }
  if (field == "age") {
    return age ? tools::age_text(*age) : "-";
  }
  if (field == "time") {
    using Duration = std::chrono::system_clock::duration;
    return age ? tools::local_time(tools::wall_clock_now() - std::chrono::duration_cast<Duration>(*age))
               : "-";
  }
  return field == "topic"  ? std::optional(tools::printable(row.topic()))
         : field == "unit" ? std::optional(tools::printable(row.unit_name()))
                           : std::nullopt;
}

// The character that an escape stands for; 0 for an unknown one.
char unescaped(char letter) {
  return letter == 'n' ? '\n' : letter == 't' ? '\t' : letter == '\\' ? '\\' : '\0';
}

struct Result {
  std::string text, fault;
};

Result filled_in(std::string_view format, const VariableRow& row, const UnitClock& clock, bool raw) {
  Result result;
  for (std::size_t at = 0; at < format.size() && result.fault.empty(); ++at) {
    const std::size_t end = format[at] == '{' ? format.find('}', at) : at + 1;
    const std::string_view part = format.substr(at, end == std::string_view::npos ? end : end - at + 1);
    if (format[at] == '{') {
      const auto field = end == std::string_view::npos
                             ? std::nullopt
                             : field_of(part.substr(1, part.size() - 2), row, clock, raw);
      result.text += field.value_or("");
      result.fault = field ? ""
                           : "unknown field '" + std::string(part) +
                                 "': use {unit}, {name}, {value}, {age}, {time} or {topic}";
      at = end;
    } else if (format[at] == '\\') {
      const char letter = part.size() == 2 ? unescaped(part.back()) : '\0';
      result.text += letter;
      result.fault = letter == '\0' ? "unknown escape '" + std::string(part) + R"(': use \n, \t or \\)" : "";
      ++at;
    } else {
      result.text += format[at];
    }
  }
  return result;
}

}  // namespace

std::string fault_of_format(const std::string& format) {
  return filled_in(format, {}, {}, false).fault;
}

std::string formatted(std::string_view format, const VariableRow& row, const UnitClock& clock, bool raw) {
  return filled_in(format, row, clock, raw).text;
}

std::string shell_assignment(const VariableRow& row) {
  if (!row.value()) {
    return "unset " + row.name;
  }
  std::string quoted = row.name + "='";
  for (const char letter : tools::printable(*row.value())) {
    quoted += letter == '\'' ? R"('\'')" : std::string(1, letter);
  }
  return quoted + '\'';
}

}  // namespace ecu::ctl
