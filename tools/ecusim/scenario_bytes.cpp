#include <algorithm>
#include <array>
#include <cctype>

#include "ecusim/scenario_parts.h"

namespace ecu::sim {

using tamu::com::Payload;

namespace {

constexpr std::int64_t max_byte = 0xff;

std::optional<unsigned> hex_digit(char digit) {
  if (std::isxdigit(static_cast<unsigned char>(digit)) == 0) {
    return std::nullopt;
  }
  const int lower = std::tolower(static_cast<unsigned char>(digit));
  return static_cast<unsigned>(lower <= '9' ? lower - '0' : lower - 'a' + 10);
}

// Two digits a byte, spaces between bytes.
std::optional<Payload> parse_hex(std::string_view text) {
  Payload bytes;
  while (!text.empty()) {
    if (text.front() == ' ') {
      text.remove_prefix(1);
      continue;
    }
    const auto high = hex_digit(text.front());
    const auto low = text.size() > 1 ? hex_digit(text[1]) : std::nullopt;
    if (!high || !low) {
      return std::nullopt;
    }
    bytes.push_back(static_cast<std::uint8_t>(*high << 4U | *low));
    text.remove_prefix(2);
  }
  return bytes;
}

std::optional<Payload> read_byte_list(const ObjectReader& reader) {
  const Json::Array* const list = reader.list("bytes");
  if (list == nullptr) {
    return std::nullopt;
  }
  Payload bytes;
  for (const Json& element : *list) {
    bytes.push_back(static_cast<std::uint8_t>(whole_number_of(element, "a byte", 0, max_byte)));
  }
  return bytes;
}

std::optional<Payload> read_text(const ObjectReader& reader) {
  const std::string* const text = reader.text("text");
  return text == nullptr ? std::nullopt : std::optional(Payload(text->begin(), text->end()));
}

}  // namespace

std::optional<Payload> read_hex(const ObjectReader& reader, std::string_view key) {
  const std::string* const text = reader.text(key);
  if (text == nullptr) {
    return std::nullopt;
  }
  std::optional<Payload> bytes = parse_hex(*text);
  if (!bytes) {
    throw Fault(reader.line_of(key), '"' + std::string(key) + "\" must be pairs of hexadecimal digits");
  }
  return bytes;
}

std::optional<Payload> read_bytes(const ObjectReader& reader) {
  constexpr std::array<std::string_view, 3> forms = {"text", "hex", "bytes"};
  if (std::ranges::count_if(forms, [&](auto form) { return reader.find(form) != nullptr; }) > 1) {
    throw Fault(reader.line(),
                std::string(reader.what()) + R"( takes only one of "text", "hex" and "bytes")");
  }
  if (auto text = read_text(reader)) {
    return text;
  }
  if (auto bytes = read_hex(reader, "hex")) {
    return bytes;
  }
  return read_byte_list(reader);
}

std::chrono::milliseconds read_milliseconds(const ObjectReader& reader, std::string_view key) {
  return std::chrono::milliseconds(reader.whole_number(key, 0, max_milliseconds).value_or(0));
}

}  // namespace ecu::sim
