#include "ecusim/scenario.h"

#include <algorithm>

#include <ecu/tamu/rt/signal_adapter.h>

#include "ecusim/scenario_parts.h"

namespace ecu::sim {

namespace {

using tamu::com::Payload;

constexpr std::int64_t max_times = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t max_data_size = 65'536;
constexpr std::int64_t max_byte = 0xff;
// MQTT 3.1.1, 1.5.3.
constexpr std::size_t max_topic_size = 65'535;

// The bytes with their padding.
std::optional<Payload> read_data(const ObjectReader& reader) {
  std::optional<Payload> bytes = read_bytes(reader);
  const auto offset = reader.whole_number("offset", 0, max_data_size);
  const auto size = reader.whole_number("pad_to", 0, max_data_size);
  const auto filler = reader.whole_number("pad_with", 0, max_byte);
  if (filler && !offset && !size) {
    throw Fault(reader.line_of("pad_with"), R"("pad_with" needs "offset" or "pad_to")");
  }
  if (!bytes && !offset && !size) {
    return std::nullopt;
  }
  Payload data(static_cast<std::size_t>(offset.value_or(0)), static_cast<std::uint8_t>(filler.value_or(0)));
  if (bytes) {
    data.insert(data.end(), bytes->begin(), bytes->end());
  }
  const auto padded_size = static_cast<std::size_t>(size.value_or(0));
  if (size && padded_size < data.size()) {
    throw Fault(reader.line_of("pad_to"),
                "\"pad_to\" is less than the " + std::to_string(data.size()) + " bytes that the signal has");
  }
  data.resize(std::max(data.size(), padded_size), static_cast<std::uint8_t>(filler.value_or(0)));
  return data;
}

void add_signal(tamu::pb::SignalGroup& group, const Json& value) {
  const ObjectReader reader(
      value, "a signal", {"name", "text", "hex", "bytes", "offset", "pad_to", "pad_with", "value", "status"});
  tamu::pb::Signal& signal = *group.add_signal();
  signal.set_name(reader.required_text("name"));
  if (const auto data = read_data(reader)) {
    signal.set_data(data->data(), data->size());
  }
  if (const auto scaled = reader.number("value")) {
    signal.set_value(*scaled);
  }
  const auto status = reader.whole_number("status", tamu::rt::signal_not_available, tamu::rt::signal_valid);
  signal.set_status(static_cast<std::uint32_t>(status.value_or(tamu::rt::signal_valid)));
}

std::string read_topic(const ObjectReader& reader) {
  const std::string& topic = reader.required_text("topic");
  if (topic.empty() || topic.size() > max_topic_size ||
      topic.find_first_of(std::string_view("+#\0", 3)) != std::string::npos) {
    throw Fault(reader.line_of("topic"), "\"topic\" must be a topic to publish on, without '+' and '#'");
  }
  return topic;
}

void read_schedule(Publication& publication, const ObjectReader& reader) {
  publication.at = read_milliseconds(reader, "at_ms");
  const auto every = reader.whole_number("every_ms", 1, max_milliseconds);
  publication.every = std::chrono::milliseconds(every.value_or(0));
  publication.times = reader.whole_number("times", 1, max_times);
  if (publication.times && !every) {
    throw Fault(reader.line_of("times"), R"("times" needs "every_ms")");
  }
  if (!every) {
    publication.times = 1;
  }
}

void read_content(Publication& publication, const ObjectReader& reader) {
  const Json::Array* const signals = reader.list("signals");
  std::optional<Payload> raw = read_hex(reader, "raw");
  if ((signals == nullptr) == !raw) {
    reader.miss(R"(either "signals" or "raw")");
  }
  if (raw) {
    publication.content = std::move(*raw);
    return;
  }
  auto& group = publication.content.emplace<tamu::pb::SignalGroup>();
  for (const Json& signal : *signals) {
    add_signal(group, signal);
  }
}

Publication read_publication(const Json& value) {
  const ObjectReader reader(value, "a message",
                            {"topic", "at_ms", "every_ms", "times", "retain", "signals", "raw"});
  Publication publication;
  publication.topic = read_topic(reader);
  read_schedule(publication, reader);
  publication.retain = reader.flag("retain").value_or(false);
  read_content(publication, reader);
  return publication;
}

}  // namespace

Scenario parse_scenario(std::string_view text) {
  const Json root = parse_json(text);
  const ObjectReader reader(root, "a scenario", {"expect", "messages", "vehicle", "ports"});
  Scenario scenario;
  if (const Json* const expect = reader.find("expect")) {
    for (const Json::Member& member : object_of(*expect, "\"expect\"")) {
      scenario.expect.push_back({member.key, text_of(member.value, "an expected value")});
    }
  }
  const Json::Array* const messages = reader.list("messages");
  if (messages == nullptr) {
    reader.miss("\"messages\"");
  }
  for (const Json& message : *messages) {
    scenario.messages.push_back(read_publication(message));
  }
  if (const Json* const vehicle = reader.find("vehicle")) {
    scenario.vehicle = read_vehicle(*vehicle);
  }
  if (const Json* const ports = reader.find("ports")) {
    scenario.ports = read_ports(*ports);
  }
  return scenario;
}

}  // namespace ecu::sim
