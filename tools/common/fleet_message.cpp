#include "common/fleet_message.h"

#include <nlohmann/json.hpp>
#include <utility>

#include <ecu/tamu/com/topic.h>

#include "common/times.h"

namespace ecu::tools {

namespace {

using Json = nlohmann::ordered_json;

// A message of the uplink is at most about 25 kB long: each of 4096 bytes as "\u0000".
constexpr std::size_t longest_message = 65'536;

constexpr std::size_t longest_level = 64;

// Whether it is null or a text, which is then stored.
bool read_text(const Json& member, std::optional<std::string>& text) {
  if (member.is_string()) {
    text = member.get<std::string>();
  }
  return member.is_string() || member.is_null();
}

bool is_stamp(const Json& member) {
  return member.is_number_unsigned() && std::in_range<std::int64_t>(member.get<std::uint64_t>());
}

}  // namespace

bool is_fleet_level(std::string_view text) {
  return text.size() <= longest_level && !text.starts_with('$') && text.find('/') == std::string_view::npos &&
         tamu::com::is_topic_name(std::string(text));
}

std::string to_json(const FleetVariable& variable) {
  const auto& [value, since, stamp, daemon] = variable;
  const Json message{{"value", value},
                     {"since", since ? Json(iso_time(*since)) : Json()},
                     {"stamp", stamp},
                     {"daemon", daemon ? Json(*daemon) : Json()}};
  return message.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<FleetVariable> fleet_variable_from_json(std::string_view text) {
  const Json message = text.size() > longest_message ? Json() : Json::parse(text, nullptr, false);
  if (!message.is_object()) {
    return std::nullopt;
  }
  FleetVariable variable;
  std::optional<std::string> value, since;
  const auto member = [&message](const char* name) {
    return message.value(name, Json(Json::value_t::discarded));
  };
  if (!read_text(member("value"), value) || !value || !read_text(member("since"), since) ||
      !is_stamp(member("stamp")) || !read_text(member("daemon"), variable.daemon)) {
    return std::nullopt;
  }
  variable.value = *value;
  variable.stamp = member("stamp").get<std::int64_t>();
  variable.since = since ? from_iso_time(*since) : std::nullopt;
  return since && !variable.since ? std::nullopt : std::optional(variable);
}

}  // namespace ecu::tools
