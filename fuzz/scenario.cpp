#include "ecusim/scenario.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <string>

#include "ecusim/port_frame.h"
#include "fuzz/fuzz.h"
#include "ports/record_parser.h"

// Reads a scenario, and parses the frames that the simulation generates from it.
namespace {

using namespace ecu;
using tamu::ipc::RecordParser;
using Values = std::map<std::uint32_t, tamu::com::Payload>;

void take_record(const tamu::ipc::IpcSignal& record, Values& values) {
  if (const auto parameter = sim::parameter_in(record)) {
    values[parameter->id] = parameter->payload;
  }
}

Values received(const tamu::com::Payload& frame) {
  RecordParser parser;
  Values values;
  const auto take_all = [&](RecordParser::TimePoint now) {
    for (auto event = parser.next(now); event != RecordParser::Event::none; event = parser.next(now)) {
      if (event == RecordParser::Event::record) {
        take_record(parser.record(), values);
      } else if (event == RecordParser::Event::damage) {
        (void)parser.take_damage();
      }
    }
  };
  for (std::size_t at = 0; at < frame.size();) {
    const std::span<char> room = parser.room();
    const std::size_t count = std::min(frame.size() - at, room.size());
    std::copy_n(frame.begin() + static_cast<std::ptrdiff_t>(at), count, room.begin());
    parser.add(count, {});
    take_all({});
    at += count;
  }
  take_all(RecordParser::TimePoint::max());
  return values;
}

void check_frames(const sim::PortsSetup& ports) {
  Values expected;
  for (const sim::Parameter& parameter : ports.parameters) {
    expected[parameter.id] = parameter.payload;
  }
  fuzz::require(received(sim::make_frame(ports.parameters)) == expected, "a frame carries its parameters");
  const Values faulty = received(sim::make_faulty_frame(ports.parameters, ports));
  for (const auto& [id, payload] : expected) {
    const auto found = faulty.find(id);
    fuzz::require(found != faulty.end() && found->second == payload,
                  "a damaged frame still carries its parameters");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const auto scenario = sim::parse_scenario({reinterpret_cast<const char*>(data), size});
    if (scenario.ports) {
      check_frames(*scenario.ports);
    }
  } catch (const sim::Fault& fault) {
    fuzz::require(fault.line() >= 1 && *fault.what() != '\0', "a fault says what and where");
  }
  return 0;
}
