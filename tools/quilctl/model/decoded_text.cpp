#include <string>

#include "quilctl/model/decoding.h"

namespace ecu::ctl {

namespace {

void print_members(std::ostream& out, const Json& object, const std::string& indent);

bool has_members(const Json& value) {
  return value.is_object() && !value.contains("hex");
}

// A value without members: a number, a text or bytes.
std::string shown(const Json& value) {
  if (value.is_object()) {
    return "hex " + value["hex"].get<std::string>();
  }
  return value.is_string() ? shown_value(value.get<std::string>()) : value.dump();
}

void print_member(std::ostream& out, const std::string& key, const Json& value, const std::string& indent) {
  out << indent << key << ':';
  if (value.is_array()) {
    out << '\n';
    for (const Json& element : value) {
      out << indent << "  -";
      if (has_members(element)) {
        out << '\n';
        print_members(out, element, indent + "    ");
      } else {
        out << ' ' << shown(element) << '\n';
      }
    }
  } else if (has_members(value)) {
    out << '\n';
    print_members(out, value, indent + "  ");
  } else {
    out << ' ' << shown(value) << '\n';
  }
}

void print_members(std::ostream& out, const Json& object, const std::string& indent) {
  for (const auto& [key, value] : object.items()) {
    print_member(out, key, value, indent);
  }
}

}  // namespace

void print_decoded(std::ostream& out, const Json& decoded) {
  Json shown = decoded;
  if (shown.erase(redacted_key) > 0) {
    shown["payload"] = "redacted (--reveal shows it)";
  }
  print_members(out, shown, "");
}

}  // namespace ecu::ctl
