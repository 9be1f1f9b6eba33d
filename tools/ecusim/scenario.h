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

/// What is sent on one topic, and when.
struct Publication {
  std::string topic;
  std::chrono::milliseconds at{0};     // after the start
  std::chrono::milliseconds every{0};  // from one publication to the next
  /// How often; without end when empty.
  std::optional<std::int64_t> times;
  bool retain = false;
  /// A signal group, or a payload that goes out as it is.
  std::variant<tamu::pb::SignalGroup, tamu::com::Payload> content;
};

/// A variable that must come, with its value; an empty value is that of a variable without one.
struct Expectation {
  std::string name;
  std::string value;
};

/// Where a vehicle identification number (VIN) comes from.
struct ControlUnit {
  std::string vin;
  /// The J1939 source address that it answers from: two hexadecimal digits, as in the topic.
  std::string source_address;
};

/// The control units of the vehicle, and how they answer a request for the VIN.
struct VehicleSetup {
  struct Change {
    std::int64_t answers;  // that still carry the VIN of before
    std::string vin;
  };

  ControlUnit unit;
  std::chrono::milliseconds answer_after{0};

  // What goes wrong.
  bool silent = false;                          // nobody answers
  bool padding = false;                         // blanks and a delimiter behind the VIN
  std::optional<std::int64_t> wrong_vin_every;  // which of the first unit's answers carry another VIN
  std::optional<Change> change_after;           // another VIN of the first unit for good
  std::optional<ControlUnit> second;            // answers too
};

/// A system parameter, or a value of the secure storage.
struct Parameter {
  std::uint32_t id;
  tamu::com::Payload payload;
};

/// What the far side of the queueing ports keeps, and how it answers a write.
struct PortsSetup {
  std::vector<Parameter> parameters;
  std::vector<Parameter> secure_values;
  std::chrono::milliseconds answer_after{0};

  // What goes wrong; the last four in every frame of system parameters.
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

/// Reads a scenario from its JSON text; docs/ecusim.md has the format. Throws `Fault` for the first fault
/// found.
[[nodiscard]] Scenario parse_scenario(std::string_view text);

/// The JSON text of the scenario that is built in: a truck's unit with everything fitted.
[[nodiscard]] std::string_view default_scenario() noexcept;

}  // namespace ecu::sim
