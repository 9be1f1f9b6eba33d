
#include <ecu/tamu/com/system_parameters.h>
#include <ecu/tamu/text/parse_number.h>

#include "ecusim/scenario_parts.h"

namespace ecu::sim {

namespace {

std::optional<std::uint32_t> parse_hexadecimal(std::string_view text) {
  constexpr std::string_view prefix = "0x";
  return text.starts_with(prefix) ? tamu::text::parse_number<std::uint32_t>(text.substr(prefix.size()), 16)
                                  : std::nullopt;
}

std::uint32_t read_id(const ObjectReader& reader) {
  const Json* const value = reader.find("id");
  if (value == nullptr) {
    reader.miss("\"id\"");
  }
  std::optional<std::uint32_t> id;
  if (const auto* const text = std::get_if<std::string>(&value->value)) {
    id = parse_hexadecimal(*text);
  } else if (const auto* const number = std::get_if<std::int64_t>(&value->value)) {
    id = std::in_range<std::uint32_t>(*number) ? std::optional(static_cast<std::uint32_t>(*number))
                                               : std::nullopt;
  }
  if (!id) {
    throw Fault(value->line, R"("id" must be a number of 32 bits, or one in hexadecimal like "0xa009")");
  }
  if (tamu::com::is_secure_storage_id(*id)) {
    throw Fault(value->line, R"(2 and 3 belong to the secure storage: use "master" and "remote")");
  }
  return *id;
}

tamu::com::Payload read_payload(const ObjectReader& reader) {
  tamu::com::Payload payload = read_bytes(reader).value_or(tamu::com::Payload());
  if (payload.size() > tamu::com::max_parameter_value_size) {
    throw Fault(reader.line(), reader.what() + " has more than " +
                                   std::to_string(tamu::com::max_parameter_value_size) + " bytes");
  }
  return payload;
}

Parameter read_parameter(const Json& value) {
  const ObjectReader reader(value, "a parameter", {"id", "text", "hex", "bytes"});
  return {read_id(reader), read_payload(reader)};
}

void read_secure_value(PortsSetup& setup, const ObjectReader& ports, std::string_view key, std::uint32_t id) {
  if (const Json* const value = ports.find(key)) {
    const ObjectReader reader(*value, '"' + std::string(key) + '"', {"text", "hex", "bytes"});
    setup.secure_values.push_back({id, read_payload(reader)});
  }
}

}  // namespace

PortsSetup read_ports(const Json& value) {
  const ObjectReader reader(value, "\"ports\"",
                            {"parameters", "master", "remote", "answer_writes", "answer_after_ms",
                             "torn_record", "wrong_crc", "empty_record", "no_end_mark"});
  PortsSetup setup;
  if (const Json::Array* const parameters = reader.list("parameters")) {
    for (const Json& parameter : *parameters) {
      setup.parameters.push_back(read_parameter(parameter));
    }
  }
  read_secure_value(setup, reader, "master", tamu::com::secure_storage_master_id);
  read_secure_value(setup, reader, "remote", tamu::com::secure_storage_remote_id);
  setup.answer_after = read_milliseconds(reader, "answer_after_ms");
  setup.answer_writes = reader.flag("answer_writes").value_or(true);
  setup.torn_record = reader.flag("torn_record").value_or(false);
  setup.wrong_crc = reader.flag("wrong_crc").value_or(false);
  setup.empty_record = reader.flag("empty_record").value_or(false);
  setup.no_end_mark = reader.flag("no_end_mark").value_or(false);
  return setup;
}

}  // namespace ecu::sim
