#include "quilctl/model/decoding.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <sstream>
#include <string>

#include <ecu/tamu/com/topics.h>

#include "fuzz/fuzz.h"

// Decodes a message on each topic of the bus for people and for programs.
namespace {

using namespace ecu;
namespace topics = tamu::com::topics;

constexpr std::array all_topics{
    topics::serial_number,   topics::hardware_variant,  topics::hardware_properties,
    topics::ignition,        topics::vehicle_request,   topics::vehicle_identification_ee,
    topics::csp_version,     topics::parameter_request, topics::all_parameters_request,
    topics::parameter_write, topics::parameter_answer,  topics::all_parameters_answer,
    topics::daemon_presence, topics::set_master,        topics::get_master,
    topics::set_remote,      topics::get_remote,        "system/var/vehicleid",
};

bool is_secret(const std::string& topic) {
  return topic.starts_with(topics::secure_storage_prefix);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string topic =
      input.ConsumeBool() ? input.PickValueInArray(all_topics) : input.ConsumeRandomLengthString(32);
  const bool framed = input.ConsumeBool();
  auto bytes = input.ConsumeRemainingBytes<std::uint8_t>();
  const auto message = tamu::com::make_message(0, framed ? fuzz::framed(bytes) : std::move(bytes));

  for (const bool reveal : {false, true}) {
    const ctl::Json decoded = ctl::decode(topic, message, reveal);
    fuzz::require(decoded.contains("topic") && decoded.contains("kind") && decoded.contains("bytes"),
                  "topic, kind and size are always there");
    fuzz::require(ctl::Json::parse(decoded.dump()) == decoded, "what is printed can be read");
    if (is_secret(topic) && !reveal) {
      fuzz::require(decoded.contains("redacted") && !decoded.contains("payload"), "a secret is not shown");
    }
    std::ostringstream text;
    ctl::print_decoded(text, decoded);
    fuzz::require(!text.str().empty(), "there is something to read");
  }
  return 0;
}
