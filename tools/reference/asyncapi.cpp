#include "reference/asyncapi.h"

#include <algorithm>
#include <sstream>
#include <string_view>
#include <vector>

#include <ecu/tamu/com/topics.h>

#include "common/variable_catalogue.h"
#include "common/version.h"

namespace ecu::reference {

namespace topics = tamu::com::topics;

namespace {

constexpr std::string_view head =
    R"yaml(# Written by write_reference from the tables of its sources: do not edit.
asyncapi: 3.0.0
info:
  title: tolquil
  version: @VERSION@
  description: >-
    The topics of the environment-variable daemon of a vehicle telematics unit. "send" is what the daemon publishes,
    "receive" what it reads. Every protobuf body follows a header of 18 bytes, and every schema here describes the
    decoded body. Programs for applications are in the examples of the package tolquil-dev. Topics that begin with
    "fleet/" are what tolquil-uplink publishes at the broker of a fleet.
defaultContentType: application/x-protobuf
servers:
  unit:
    host: localhost:1883
    protocol: mqtt
    protocolVersion: 3.1.1
    description: the unit's broker; a unit may have a Unix-domain socket instead of the port
  fleet:
    host: fleet.example.com:8883
    protocol: mqtts
    protocolVersion: 3.1.1
    description: the broker of a fleet
)yaml";

constexpr std::string_view components = R"yaml(components:
  operationTraits:
    value:
      bindings: {mqtt: {qos: 0, retain: true, bindingVersion: 0.2.0}}
    confirmed:
      bindings: {mqtt: {qos: 1, retain: true, bindingVersion: 0.2.0}}
    event:
      bindings: {mqtt: {qos: 0, retain: false, bindingVersion: 0.2.0}}
    request:
      bindings: {mqtt: {qos: 0, bindingVersion: 0.2.0}}
  messages:
    EcuVariableReq:
      name: ecu.tamu.pb.EcuVariableReq
      payload:
        type: object
        properties:
          name: {type: array, items: {type: string, description: an identifier, decimal, examples: ["40969"]}}
    SystemParameterEntry:
      name: ecu.tamu.pb.SystemParameterEntry
      payload: {$ref: "#/components/schemas/SystemParameterEntry"}
    SystemParameterList:
      name: ecu.tamu.pb.SystemParameterList
      payload:
        type: object
        properties:
          entry: {type: array, items: {$ref: "#/components/schemas/SystemParameterEntry"}}
    SignalGroup:
      name: ecu.tamu.pb.SignalGroup
      payload:
        type: object
        properties:
          signal: {type: array, items: {$ref: "#/components/schemas/Signal"}}
    Presence:
      contentType: text/plain
      payload: {type: string, enum: [online, offline]}
    FleetVariable:
      contentType: application/json
      payload:
        type: object
        required: [value, since, stamp, daemon]
        properties:
          value: {type: string, examples: [1M8GDM9AXKP042788]}
          since: {type: [string, "null"], format: date-time, description: "when the daemon first published it, UTC; null until the unit's clock is set"}
          stamp: {type: integer, format: int64, minimum: 0, description: the same in nanoseconds of the unit's CLOCK_BOOTTIME}
          daemon: {type: [string, "null"], enum: [online, offline, null], description: "the daemon's presence when this was sent; null if it was unknown"}
    FleetPresence:
      contentType: text/plain
      payload: {type: string, enum: [online, offline, lost]}
    FleetTime:
      contentType: text/plain
      payload: {type: string, format: date-time, description: UTC, examples: ["2026-11-22T08:00:00.000Z"]}
    Secret:
      contentType: application/octet-stream
      payload: {type: string, format: binary}
    Anything:
      contentType: application/octet-stream
      payload: {description: ignored}
  schemas:
    Timestamp:
      type: integer
      format: uint64
      description: >-
        when the message that brought the value was received, in nanoseconds of the unit's CLOCK_BOOTTIME; absent without
        a value
    SystemParameterEntry:
      type: object
      properties:
        ota_id: {type: integer, format: uint32, description: the identifier}
        name: {type: string}
        type: {type: integer, format: uint32}
        value: {type: string, format: binary}
    Signal:
      type: object
      required: [name]
      properties:
        name: {type: string}
        data: {type: string, format: binary, description: the bytes of a signal that is an array}
        value: {type: number, format: double, description: "the physical value, already scaled"}
        status: {type: integer, enum: [0, 1, 2, 3], description: "not available (also when absent), error, not received yet, valid"}
)yaml";

/// A channel and the daemon's only operation on it. Its identifiers in the document are the name and, for the
/// operation, the action before it.
struct Channel {
  std::string name;
  std::string address;
  std::string description;
  std::string action;   // of the daemon: "send" or "receive"
  std::string trait;    // of the operation: quality of service and retain flag
  std::string message;  // a component; empty for a variable, whose message the channel has
};

const std::string fleet_tree = std::string(topics::default_fleet_prefix) + "/{unit}/";

const std::vector<Channel> other_channels{
    {"presence", topics::daemon_presence,
     R"("online" after each connection; "offline" on an orderly stop and as last will)", "send", "confirmed",
     "Presence"},
    {"uplink_presence", std::string(topics::presence_prefix) + "uplink", "the same of tolquil-uplink", "send",
     "confirmed", "Presence"},
    {"parameter_request", topics::parameter_request, "requests system parameters by their identifiers",
     "receive", "request", "EcuVariableReq"},
    {"parameter_answer", topics::parameter_answer,
     "one answer for each identifier that was found; the topic ends with the slash", "send", "event",
     "SystemParameterEntry"},
    {"all_parameters_request", topics::all_parameters_request, "requests all system parameters", "receive",
     "request", "Anything"},
    {"all_parameters_answer", topics::all_parameters_answer, "all system parameters", "send", "event",
     "SystemParameterList"},
    {"parameter_write", topics::parameter_write, "writes system parameters", "receive", "request",
     "SystemParameterList"},
    {"set_master", topics::set_master, "writes the master value of the secure storage", "receive", "request",
     "Secret"},
    {"set_remote", topics::set_remote, "writes the remote value of the secure storage", "receive", "request",
     "Secret"},
    {"get_master", topics::get_master, "the master value of the secure storage", "send", "confirmed",
     "Secret"},
    {"get_remote", topics::get_remote, "the remote value of the secure storage", "send", "confirmed",
     "Secret"},
    {"ignition", topics::ignition, "the signal kl15: the ignition", "receive", "request", "SignalGroup"},
    {"vehicle_request", topics::vehicle_request, "requests the VIN from the vehicle network", "send", "event",
     "SignalGroup"},
    {"fleet_variable", fleet_tree + topics::fleet_variable_prefix + "{name}",
     "a variable, published when its value changes", "send", "confirmed", "FleetVariable"},
    {"fleet_daemon", fleet_tree + topics::fleet_daemon,
     "the presence of the unit's daemon; cleared while the unit's bus is away", "send", "confirmed",
     "Presence"},
    {"fleet_presence", fleet_tree + topics::fleet_presence,
     R"("online"; "offline" after an orderly stop; "lost" as last will)", "send", "confirmed",
     "FleetPresence"},
    {"fleet_connected_since", fleet_tree + topics::fleet_connected_since,
     "when the present or last connection began; cleared until the unit's clock is set", "send", "confirmed",
     "FleetTime"},
};

std::string quoted(std::string_view text) {
  return tools::Json(text).dump();
}

/// The channel of a source topic; named by the end of its address.
Channel source_channel(std::string_view topic) {
  return {std::string(topic.substr(topic.rfind('/') + 1)),
          std::string(topic),
          "a source of variables",
          "receive",
          "request",
          "SignalGroup"};
}

std::vector<Channel> all_channels() {
  std::vector<Channel> channels;
  for (const tools::VariableInfo& info : tools::variables()) {
    channels.push_back(
        {std::string(info.name), info.topic(), std::string(info.meaning), "send", "value", ""});
  }
  channels.insert(channels.end(), other_channels.begin(), other_channels.end());
  for (const tools::VariableInfo& info : tools::variables()) {
    for (const std::string_view topic : info.sources()) {
      if (std::ranges::find(channels, topic, &Channel::address) == channels.end()) {
        channels.push_back(source_channel(topic));
      }
    }
  }
  return channels;
}

void write_value_message(std::ostream& out, const tools::VariableInfo& info) {
  out << "        name: ecu.tamu.pb.EcuVariable\n"
         "        payload:\n"
         "          type: object\n"
         "          description: "
      << quoted("published " + std::string(info.published_when) + "; without fields if the value is empty")
      << "\n          properties:\n"
         "            value:\n"
         "              type: string\n"
         "              description: "
      << quoted(info.form.description) << '\n';
  if (!info.form.enumeration.empty()) {
    out << "              enum: " << tools::Json(info.form.enumeration).dump() << '\n';
  }
  if (!info.form.pattern.empty()) {
    out << "              pattern: " << quoted(info.form.pattern) << '\n';
  }
  out << "              examples: [" << quoted(info.example) << "]\n"
      << "            timestamp: {$ref: \"#/components/schemas/Timestamp\"}\n";
  if (!info.sources().empty()) {
    out << "        x-source: " << tools::Json(info.sources()).dump()
        << "\n        x-signal: " << quoted(info.signal) << '\n';
  }
}

void write_server_and_parameters(std::ostream& out, const Channel& channel) {
  const bool is_of_fleet = channel.address.starts_with(fleet_tree);
  out << "    servers: [{$ref: \"#/servers/" << (is_of_fleet ? "fleet" : "unit") << "\"}]\n";
  if (is_of_fleet) {
    out << "    parameters:\n      unit: {description: the unit's name}\n";
  }
  if (channel.address.ends_with("{name}")) {
    out << "      name: {description: the variable's name}\n";
  }
}

void write_channel(std::ostream& out, const Channel& channel) {
  out << "  " << channel.name << ":\n    address: " << channel.address
      << "\n    description: " << quoted(channel.description) << '\n';
  write_server_and_parameters(out, channel);
  out << "    messages:\n      message:\n";
  if (channel.message.empty()) {
    write_value_message(out, *tools::find_variable(channel.name));
  } else {
    out << "        $ref: \"#/components/messages/" << channel.message << "\"\n";
  }
}

void write_operation(std::ostream& out, const Channel& channel) {
  out << "  " << channel.action << '_' << channel.name << ":\n    action: " << channel.action
      << "\n    channel: {$ref: \"#/channels/" << channel.name
      << "\"}\n    traits: [{$ref: \"#/components/operationTraits/" << channel.trait << "\"}]\n";
}

}  // namespace

std::string asyncapi() {
  constexpr std::string_view version = "@VERSION@";
  std::string first(head);
  first.replace(first.find(version), version.size(), tools::release_version());
  std::ostringstream out;
  out << first << "channels:\n";
  const std::vector<Channel> channels = all_channels();
  for (const Channel& channel : channels) {
    write_channel(out, channel);
  }
  out << "operations:\n";
  for (const Channel& channel : channels) {
    write_operation(out, channel);
  }
  out << components;
  return out.str();
}

}  // namespace ecu::reference
