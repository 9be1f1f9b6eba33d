#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <ecu/tamu/com/message.h>
#include <ecu/tamu/pb/messages.pb.h>

#include "ecusim/json_lines.h"

namespace ecu::sim {

/// A message, and when it is published.
struct Publication {
  std::string topic;
  std::chrono::milliseconds at{0};     // after the start
  std::chrono::milliseconds every{0};  // from one publication to the next
  /// The number of publications; unlimited when empty.
  std::optional<std::int64_t> times;
  bool retain = false;
  /// A signal group, or a payload that is published unchanged.
  std::variant<tamu::pb::SignalGroup, tamu::com::Payload> content;
};

/// An expected variable and its value; empty also for a variable without a value.
struct Expectation {
  std::string name;
  std::string value;
};

/// A control unit that sends a vehicle identification number (VIN).
struct ControlUnit {
  std::string vin;
  /// The J1939 source address of its answers: two hexadecimal digits, as in the topic.
  std::string source_address;
};

/// The control units of the vehicle, and how they answer a request for the VIN.
struct VehicleSetup {
  struct Change {
    std::int64_t answers;  // that still carry the previous VIN
    std::string vin;
  };

  ControlUnit unit;
  std::chrono::milliseconds answer_after{0};

  // Faults.
  bool silent = false;                          // no answers
  bool padding = false;                         // spaces and a delimiter after the VIN
  std::optional<std::int64_t> wrong_vin_every;  // every Nth answer of the first unit carries another VIN
  std::optional<Change> change_after;           // permanent change of the first unit's VIN
  std::optional<ControlUnit> second;            // answers too
};

/// A system parameter, or a value of the secure storage.
struct Parameter {
  std::uint32_t id;
  tamu::com::Payload payload;
};

/// The parameters of the other side of the queueing ports, and how it answers a write.
struct PortsSetup {
  std::vector<Parameter> parameters;
  std::vector<Parameter> secure_values;
  std::chrono::milliseconds answer_after{0};

  // Faults; the last four affect every frame of system parameters.
  bool answer_writes = true;
  bool torn_record = false;
  bool wrong_crc = false;
  bool empty_record = false;
  bool no_end_mark = false;
};

struct Scenario {
  std::vector<Expectation> expect;
  std::vector<Publication> messages;
  std::optional<VehicleSetup> vehicle;
  std::optional<PortsSetup> ports;
};

/// Reads a scenario from its JSON text; docs/ecusim.md has the format. Throws `Fault` for the first error.
[[nodiscard]] Scenario parse_scenario(std::string_view text);

/// The JSON text of the built-in scenario: a truck's unit with everything fitted.
[[nodiscard]] std::string_view default_scenario() noexcept;

}  // namespace ecu::sim
