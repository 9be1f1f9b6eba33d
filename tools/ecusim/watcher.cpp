#include "ecusim/watcher.h"

#include <algorithm>
#include <iomanip>
#include <optional>
#include <sstream>
#include <utility>

#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/pb/messages.pb.h>
#include <ecu/tamu/text/utf8.h>

namespace ecu::sim {

namespace com = tamu::com;

namespace {

constexpr std::string_view topic_prefix = com::topics::variable_prefix;
constexpr int name_width = 20;
constexpr int value_width = 32;
constexpr int seconds_width = 8;
constexpr std::uint64_t ns_per_ms = 1'000'000;
constexpr std::uint64_t ms_per_s = 1'000;

using Variable = std::optional<tamu::pb::EcuVariable>;  // empty: cannot be decoded

/// A variable, or a system parameter that is shown like one.
struct Item {
  std::string name;
  Variable variable;
};

template <class Body>
std::optional<Body> decode(const com::Message& msg) {
  auto result = com::PbInternalMessageAdapter<Body>().deserialize(msg);
  return result.ok ? std::optional(std::move(result.body)) : std::nullopt;
}

std::string parameter_name(std::uint32_t id) {
  std::ostringstream name;
  name << "sysparam/0x" << std::hex << id;
  return name.str();
}

std::vector<Item> parameters_in(const com::Message& msg) {
  const auto list = decode<tamu::pb::SystemParameterList>(msg);
  if (!list) {
    return {{com::topics::all_parameters_answer, std::nullopt}};
  }
  std::vector<Item> items;
  for (const tamu::pb::SystemParameterEntry& entry : list->entry()) {
    Variable value(std::in_place);
    value->set_value(entry.value());
    items.push_back({parameter_name(entry.ota_id()), std::move(value)});
  }
  return items;
}

std::vector<Item> items_in(std::string_view topic, const com::Message& msg) {
  if (topic == com::topics::all_parameters_answer) {
    return parameters_in(msg);
  }
  const std::size_t prefix = topic.starts_with(topic_prefix) ? topic_prefix.size() : 0;
  return {{std::string(topic.substr(prefix)), decode<tamu::pb::EcuVariable>(msg)}};
}

std::string value_text(const Variable& variable) {
  if (!variable) {
    return "(cannot be decoded)";
  }
  return variable->has_value() ? printable(variable->value()) : "(no value)";
}

std::string describe(const Item& item) {
  const auto& [name, variable] = item;
  std::ostringstream line;
  line << std::left << std::setw(name_width) << printable(name) << "  ";
  if (!variable || !variable->has_timestamp()) {
    line << value_text(variable);
  } else {
    const std::uint64_t ms = variable->timestamp() / ns_per_ms;
    line << std::setw(value_width) << value_text(variable) << "  " << std::right << std::setw(seconds_width)
         << ms / ms_per_s << '.' << std::setfill('0') << std::setw(3) << ms % ms_per_s << " s";
  }
  return line.str();
}

// As a whole, and flushed even when the output is not a terminal.
void print(std::ostream& out, const std::string& line) {
  out << line + '\n' << std::flush;
}

}  // namespace

std::string printable(std::string_view text) {
  std::string result;
  for (const char character : text) {
    if (character >= ' ' && character <= '~' && character != '\\') {
      result += character;
    } else {
      const auto escape = tamu::text::hex_escape(character);
      result.append(escape.data(), escape.size());
    }
  }
  return result;
}

void VariablePrinter::message(const std::string& topic, const com::Message& msg) {
  for (const Item& item : items_in(topic, msg)) {
    const std::string line = describe(item);
    if (topic != com::topics::all_parameters_answer ||
        std::exchange(parameter_lines_[item.name], line) != line) {
      print(out_, line);
    }
  }
  if (!out_) {
    on_failure_();
  }
}

VariableChecker::VariableChecker(const std::vector<Expectation>& expect, std::function<void()> on_complete)
    : missing_(expect.size()), on_complete_(std::move(on_complete)) {
  for (const Expectation& expectation : expect) {
    expected_.push_back({expectation, {}, {}});
  }
}

void VariableChecker::message(const std::string& topic, const com::Message& msg) {
  for (const Item& item : items_in(topic, msg)) {
    const auto expected = std::ranges::find_if(expected_, [&item](const Expected& candidate) {
      return !candidate.fulfilled && candidate.expectation.name == item.name;
    });
    if (expected == expected_.end()) {
      continue;
    }
    expected->line = describe(item);
    expected->value = value_text(item.variable);
    expected->fulfilled = item.variable && item.variable->value() == expected->expectation.value;
    if (expected->fulfilled && --missing_ == 0) {
      on_complete_();
    }
  }
}

bool VariableChecker::report(std::ostream& out, std::ostream& err) const {
  for (const Expected& expected : expected_) {
    const Expectation& expectation = expected.expectation;
    if (missing_ == 0) {
      print(out, expected.line);
    } else if (!expected.fulfilled) {
      print(err, "missing: " + printable(expectation.name) + ", expected \"" + printable(expectation.value) +
                     "\", " + (expected.line.empty() ? "not published" : "last value: " + expected.value));
    }
  }
  return missing_ == 0;
}

}  // namespace ecu::sim
