#include <algorithm>
#include <iomanip>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>

#include "common/escaping.h"
#include "common/notes.h"
#include "quilctl/base/value_input.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/variable_rows.h"
#include "quilctl/screen/variable_output.h"
#include "quilctl/talk/parameter_client.h"
#include "quilctl/talk/variable_session.h"

namespace ecu::ctl {

namespace {

using Clock = RequestSession::Clock;
using std::chrono::duration;

constexpr duration<double> default_time_limit = std::chrono::seconds(20);
constexpr std::chrono::seconds poll_interval{1};
constexpr std::size_t max_file_size = std::size_t{64} * 1024 * 1024;
constexpr const char* expect_key = "expect";
constexpr std::string_view parameter_prefix = "sysparam/";

/// Names with the values that they must have; "" also stands for no value.
using Expectation = std::map<std::string, std::string>;

std::optional<std::uint32_t> parameter_of(std::string_view name) {
  return name.starts_with(parameter_prefix) ? parse_id(name.substr(parameter_prefix.size())) : std::nullopt;
}

bool is_parameter(const std::pair<const std::string, std::string>& one) {
  return parameter_of(one.first).has_value();
}

std::vector<std::string> variables_of(const Expectation& expected) {
  std::vector<std::string> names;
  for (const auto& one : expected) {
    if (!is_parameter(one)) {
      names.push_back(one.first);
    }
  }
  return names;
}

Expectation read_expectation(const std::string& path) {
  const Json file = Json::parse(tools::read_file(path, max_file_size), nullptr, false);
  Expectation expectation;
  if (file.is_object() && file.contains(expect_key) && file[expect_key].is_object()) {
    for (const auto& [name, value] : file[expect_key].items()) {
      if (!value.is_string()) {
        throw Failure(ExitCode::usage, path + ": the value of \"" + name + "\" is not a text");
      }
      expectation[name] = value;
    }
  }
  if (expectation.empty()) {
    throw Failure(ExitCode::usage, path + ": not a JSON file with names and values in \"expect\"");
  }
  return expectation;
}

std::optional<std::string> value_of(const std::string& name, const VariableView& view,
                                    const Parameters& held) {
  if (const auto id = parameter_of(name)) {
    const Parameter* const parameter = find(held, *id);
    return parameter == nullptr ? std::nullopt : std::optional(parameter->value);
  }
  const Variable* const variable = view.find(name);
  return variable == nullptr ? std::nullopt : variable->value;
}

// Of the parameters, or of the variables.
bool is_met(const Expectation& expected, bool of_parameters, const VariableView& view,
            const Parameters& held) {
  return std::ranges::all_of(expected, [&](const auto& one) {
    return is_parameter(one) != of_parameters || value_of(one.first, view, held).value_or("") == one.second;
  });
}

// A request is lost when the daemon is not on line yet.
Parameters await_parameters(const Options& options, const Expectation& expected, Clock::time_point deadline) {
  Parameters held;
  if (std::ranges::none_of(expected, is_parameter)) {
    return held;
  }
  ParameterClient client(options, default_time_limit);
  do {
    client.session().set_time_limit(poll_interval);
    if (auto reply = client.try_read()) {
      held = std::move(*reply);
    }
    if (!is_met(expected, true, {}, held)) {
      client.session().process_until(deadline);  // at most until the time limit
    }
  } while (!is_met(expected, true, {}, held) && Clock::now() < deadline);
  return held;
}

void print(const Expectation& expected, const VariableView& view, const Parameters& held,
           const UnitClock& clock) {
  std::vector<VariableRow> rows = variable_rows(view);
  std::erase_if(rows, [&](const VariableRow& row) { return !expected.contains(row.name); });
  TextTable table = table_of(rows, clock, false);
  for (const auto& one : expected) {
    if (is_parameter(one)) {
      table.add({tools::printable(one.first), shown_value(value_of(one.first, view, held)), "-",
                 "system parameter"});
    }
  }
  table.print(std::cout, OutputStyle::of_standard_output());
}

// Returns how many there are.
std::size_t note_differences(const Expectation& expected, const VariableView& view, const Parameters& held) {
  std::size_t count = 0;
  for (const auto& [name, wanted] : expected) {
    if (const std::string value = value_of(name, view, held).value_or(""); value != wanted) {
      tools::note(name + ": expected \"" + wanted + "\", has \"" + value + '"');
      ++count;
    }
  }
  return count;
}

std::string verdict(const Expectation& expected, duration<double> time) {
  const auto parameters = static_cast<std::size_t>(std::ranges::count_if(expected, is_parameter));
  std::ostringstream text;
  text << expected.size() - parameters << " variables";
  if (parameters > 0) {
    text << " and " << parameters << (parameters == 1 ? " parameter" : " parameters");
  }
  text << " as expected after " << std::fixed << std::setprecision(1) << time.count() << " s";
  return text.str();
}

}  // namespace

ExitCode list_expected(const Options& options) {
  const Expectation expected = read_expectation(options.expect_file);
  const auto begin = Clock::now();
  const auto limit = options.timeout.value_or(default_time_limit);
  const auto deadline = begin + std::chrono::duration_cast<Clock::duration>(limit);
  // Its connection must end before another one begins.
  std::optional<VariableSession> session(std::in_place, options, true, default_time_limit);
  require_known(variable_rows(session->view()), variables_of(expected));
  (void)session->session().wait_until([&] { return is_met(expected, false, session->view(), {}); });
  session->determine_clock();
  const VariableView view = session->view();
  const UnitClock clock = session->clock();
  const std::string time_limit = session->session().time_limit();
  session.reset();
  const Parameters held = await_parameters(options, expected, deadline);
  print(expected, view, held, clock);
  if (const std::size_t count = note_differences(expected, view, held); count > 0) {
    throw Failure(ExitCode::failure, std::to_string(count) + " of " + std::to_string(expected.size()) +
                                         " values not as expected within " + time_limit);
  }
  std::cout << verdict(expected, Clock::now() - begin) << '\n';
  return ExitCode::done;
}

}  // namespace ecu::ctl
