#include <algorithm>
#include <array>

#include "ecusim/scenario_parts.h"

namespace ecu::sim {

namespace {

constexpr std::int64_t max_answers = std::numeric_limits<std::int32_t>::max();

ControlUnit read_control_unit(const ObjectReader& reader) {
  // Those that the unit's real-time side listens to.
  constexpr std::array<std::string_view, 3> addresses = {"00", "ee", "fe"};
  ControlUnit unit{reader.required_text("vin"), reader.required_text("source_address")};
  if (std::ranges::find(addresses, unit.source_address) == addresses.end()) {
    throw Fault(reader.line_of("source_address"), R"("source_address" must be "00", "ee" or "fe")");
  }
  return unit;
}

ControlUnit read_second(const Json& value) {
  return read_control_unit(ObjectReader(value, "\"second\"", {"vin", "source_address"}));
}

VehicleSetup::Change read_change(const Json& value) {
  const ObjectReader reader(value, "\"change_after\"", {"answers", "vin"});
  const auto answers = reader.whole_number("answers", 0, max_answers);
  if (!answers) {
    reader.miss("\"answers\"");
  }
  return {*answers, reader.required_text("vin")};
}

}  // namespace

VehicleSetup read_vehicle(const Json& value) {
  const ObjectReader reader(value, "a vehicle",
                            {"vin", "source_address", "answer_after_ms", "silent", "wrong_vin_every",
                             "change_after", "second", "padding"});
  VehicleSetup setup;
  setup.unit = read_control_unit(reader);
  setup.answer_after = read_milliseconds(reader, "answer_after_ms");
  setup.silent = reader.flag("silent").value_or(false);
  setup.wrong_vin_every = reader.whole_number("wrong_vin_every", 1, max_answers);
  setup.padding = reader.flag("padding").value_or(false);
  if (const Json* const change = reader.find("change_after")) {
    setup.change_after = read_change(*change);
  }
  if (const Json* const second = reader.find("second")) {
    setup.second = read_second(*second);
  }
  return setup;
}

}  // namespace ecu::sim
