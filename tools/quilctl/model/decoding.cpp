#include "quilctl/model/decoding.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <string_view>
#include <utility>

#include <ecu/tamu/com/framing.h>
#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/pb/messages.pb.h>
#include <ecu/tamu/rt/signal_adapter.h>

#include "common/escaping.h"
#include "common/hexadecimal.h"

namespace ecu::ctl {

namespace com = tamu::com;
namespace pb = tamu::pb;
namespace topics = com::topics;

namespace {

std::string text_of(std::span<const std::uint8_t> bytes) {
  return {bytes.begin(), bytes.end()};
}

Json fields_of(const pb::EcuVariable& body) {
  Json fields = Json::object();
  if (body.has_value()) {
    fields["value"] = json_value(body.value());
  }
  if (body.has_timestamp()) {
    fields["timestamp"] = body.timestamp();
  }
  return fields;
}

Json fields_of(const pb::EcuVariableReq& body) {
  Json names = Json::array();
  for (const std::string& name : body.name()) {
    names.push_back(json_value(name));
  }
  return {{"name", std::move(names)}};
}

// Unknown fields of a message or of a part of it.
void add_unknown(Json& fields, const std::string& unknown) {
  if (!unknown.empty()) {
    fields["unknown_fields"] = {{"hex", tools::to_hex(unknown)}};
  }
}

Json fields_of(const pb::SystemParameterEntry& body) {
  Json fields = Json::object();
  if (body.has_ota_id()) {
    fields["ota_id"] = body.ota_id();
    fields["hex_id"] = "0x" + tools::to_hex_number(body.ota_id());
  }
  if (body.has_name()) {
    fields["name"] = json_value(body.name());
  }
  if (body.has_type()) {
    fields["type"] = body.type();
  }
  if (body.has_value()) {
    fields["value"] = json_value(body.value());
  }
  return fields;
}

Json fields_of(const pb::SystemParameterList& body) {
  Json entries = Json::array();
  for (const pb::SystemParameterEntry& entry : body.entry()) {
    entries.push_back(fields_of(entry));
    add_unknown(entries.back(), entry.unknown_fields());
  }
  return {{"entry", std::move(entries)}};
}

std::string_view name_of_status(std::uint32_t status) {
  constexpr std::array<std::string_view, 4> names = {"not available", "error", "not received yet", "valid"};
  return status < names.size() ? names[status] : "unknown";
}

// JSON has no NaN and no infinity; the library would write null.
Json number_of(double value) {
  return std::isfinite(value) ? Json(value) : Json(std::isnan(value) ? "nan" : value > 0 ? "inf" : "-inf");
}

// Text signals are padded with zeros to a fixed size.
std::string_view without_padding(std::string_view data) {
  return data.substr(0, data.find_last_not_of('\0') + 1);
}

Json fields_of(const pb::SignalGroup& body) {
  Json signals = Json::array();
  for (const pb::Signal& signal : body.signal()) {
    Json fields{{"name", json_value(signal.name())}};
    if (signal.has_data()) {
      fields["data"] = {{"hex", tools::to_hex(signal.data())}};
      const std::string_view text = without_padding(signal.data());
      if (!text.empty() && tools::is_utf8(text) && tools::printable(text) == text) {
        fields["text"] = text;
      }
    }
    if (signal.has_value()) {
      fields["value"] = number_of(signal.value());
    }
    if (signal.has_status()) {
      fields["status"] = signal.status();
      fields["status_name"] = name_of_status(signal.status());
    }
    add_unknown(fields, signal.unknown_fields());
    signals.push_back(std::move(fields));
  }
  return {{"signal", std::move(signals)}};
}

std::string_view description_of(com::err::PbInternalDeserializationError error) {
  using Error = com::err::PbInternalDeserializationError;
  switch (error) {
    case Error::success:
      return "";
    case Error::too_short:
      return "shorter than a header (18 bytes)";
    case Error::bad_header:
      return "malformed header";
    case Error::protocol_not_used:
      return "protocol type 0 in the header: not used";
    case Error::bad_header_length:
      return "header length in the header is not 18";
    case Error::bad_body:
      return "body is shorter than the header says, or malformed";
  }
  return "unknown error";
}

template <class Body>
void decode_framed(Json& decoded, std::span<const std::uint8_t> payload) {
  const auto header = header_of(payload);
  if (header) {
    decoded["framing"] = {{"protocol_type", header->protocol_type},
                          {"header_length", header->header_length},
                          {"body_length", header->body_length},
                          {"send_time_ns", header->send_time_ns}};
  }
  Body body;
  std::uint16_t protocol_type = 0;
  const auto error = com::unframe(payload, body, protocol_type);
  if (error != com::err::PbInternalDeserializationError::success) {
    decoded["fault"] = description_of(error);
    decoded["payload"] = {{"hex", tools::to_hex(text_of(payload))}};
    return;
  }
  decoded["fields"] = fields_of(body);
  add_unknown(decoded, body.unknown_fields());
  if (const std::size_t end = com::txf_header_size + header->body_length; end < payload.size()) {
    decoded["surplus"] = {{"hex", tools::to_hex(text_of(payload.subspan(end)))}};
  }
}

void decode_plain(Json& decoded, std::span<const std::uint8_t> payload) {
  if (!payload.empty()) {
    decoded["payload"] = json_value(text_of(payload));
  }
}

using Decoder = void (*)(Json& decoded, std::span<const std::uint8_t> payload);

struct Kind {
  std::string_view topic;  // a prefix when it ends with '/'
  std::string_view name;
  Decoder decoder;  // null: secret
};

// The first match counts.
constexpr Kind kinds[] = {
    {topics::variable_prefix, "EcuVariable", decode_framed<pb::EcuVariable>},
    {topics::parameter_answer, "SystemParameterEntry", decode_framed<pb::SystemParameterEntry>},
    {topics::all_parameters_answer, "SystemParameterList", decode_framed<pb::SystemParameterList>},
    {topics::parameter_write, "SystemParameterList", decode_framed<pb::SystemParameterList>},
    {topics::parameter_request, "EcuVariableReq", decode_framed<pb::EcuVariableReq>},
    {topics::all_parameters_request, "request for all parameters", decode_plain},
    {topics::secure_storage_prefix, "secret", nullptr},
    {topics::presence_prefix, "presence", decode_plain},
    {topics::signal_group_prefix, "SignalGroup", decode_framed<pb::SignalGroup>},
};
constexpr Kind unknown_kind = {"", "unknown", decode_plain};

const Kind& kind_of(std::string_view topic) {
  const auto* const found = std::ranges::find_if(kinds, [topic](const Kind& kind) {
    return kind.topic.ends_with('/') ? topic.starts_with(kind.topic) : topic == kind.topic;
  });
  return found == std::end(kinds) ? unknown_kind : *found;
}

}  // namespace

std::optional<MessageHeader> header_of(std::span<const std::uint8_t> payload) {
  pb::TXFHeader header;
  // A partial parse, because a full one logs an error when a field is missing.
  if (payload.size() < com::txf_header_size ||
      !header.ParsePartialFromArray(payload.data(), static_cast<int>(com::txf_header_size)) ||
      !header.IsInitialized()) {
    return std::nullopt;
  }
  const std::uint64_t framing = header.framing();
  return MessageHeader{static_cast<std::uint16_t>(framing), static_cast<std::uint16_t>(framing >> 16U),
                       static_cast<std::uint32_t>(framing >> 32U), header.send_time_ns()};
}

std::string not_decodable(const std::string& topic) {
  return "cannot decode the message on " + topic;
}

Json decode(const std::string& topic, const com::Message& msg, bool reveal) {
  const Kind& kind = kind_of(topic);
  Json decoded{{"topic", json_value(topic)}, {"kind", kind.name}};
  decoded["retained"] = msg.retained;
  decoded["bytes"] = msg.payload.size();
  if (kind.decoder != nullptr) {
    kind.decoder(decoded, msg.payload);
  } else if (reveal) {
    decoded["payload"] = {{"hex", tools::to_hex(text_of(msg.payload))}};
  } else {
    decoded[redacted_key] = true;
  }
  return decoded;
}

}  // namespace ecu::ctl
