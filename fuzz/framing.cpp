#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <span>
#include <type_traits>

#include <ecu/tamu/com/message_fields.h>
#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/pb/messages.pb.h>

#include "fuzz/fuzz.h"

// Decodes payloads, and encodes the results again, for every type of message.
namespace {

using namespace ecu::tamu;
using Error = com::err::PbInternalDeserializationError;

std::uint64_t number_at(const com::Payload& bytes, std::size_t offset) {
  return fuzz::number_of(std::span(bytes).subspan(offset, 8));
}

// The expected result of the header alone: two fixed64 fields fill its 18 bytes, in either order.
Error expected_of_header(const com::Payload& payload, std::uint64_t& framing) {
  constexpr std::uint8_t framing_tag = 0x09, time_tag = 0x11;
  if (payload.size() < 18) {
    return Error::too_short;
  }
  const bool framing_first = payload[0] == framing_tag && payload[9] == time_tag;
  if (!framing_first && !(payload[0] == time_tag && payload[9] == framing_tag)) {
    return Error::bad_header;
  }
  framing = number_at(payload, framing_first ? 1 : 10);
  if ((framing & 0xffffU) == 0) {
    return Error::protocol_not_used;
  }
  if ((framing >> 16U & 0xffffU) != 18) {
    return Error::bad_header_length;
  }
  return (framing >> 32U) > payload.size() - 18 ? Error::bad_body : Error::success;
}

// Reading the fields one by one succeeds when parsing the whole does, and yields the same. A signal has a
// required field, so its fields are no messages.
template <class Body, class Result>
void check_fields(const com::Message& message, const Result& whole) {
  if constexpr (!std::is_same_v<Body, pb::Signal>) {
    const auto fields = com::MessageFields<Body>::of(message.payload);
    fuzz::require(fields.ok() == whole.ok, "the fields pass when the whole does");
    if (whole.ok) {
      Body merged;
      fields->for_each([&merged](const Body& field) {
        merged.MergeFrom(field);
        return true;
      });
      fuzz::require(merged.SerializeAsString() == whole.body.SerializeAsString(),
                    "the fields make up the whole");
    }
  }
}

template <class Body>
void check(const com::Message& message) {
  std::uint64_t framing = 0;
  const Error expected = expected_of_header(message.payload, framing);
  com::PbInternalMessageAdapter<Body> adapter;
  const auto result = adapter.deserialize(message);
  fuzz::require(result.ok == (result.error == Error::success), "flag and code agree");
  if (expected != Error::success) {
    fuzz::require(result.error == expected, "the header's fault is reported");
    return;
  }
  fuzz::require(result.ok || result.error == Error::bad_body, "a good header passes");
  check_fields<Body>(message, result);
  fuzz::require(adapter.protocol_type() == (framing & 0xffffU), "the protocol type is the header's");
  if (!result.ok) {
    return;
  }
  const auto again = adapter.serialize(result.body);
  fuzz::require(again.has_value(), "what was parsed can be sent");
  fuzz::require(number_at(again->payload, 1) ==
                    ((framing & 0xffffU) | 18U << 16U | std::uint64_t{again->payload.size() - 18} << 32U),
                "the header describes the body");
  const auto second = adapter.deserialize(*again);
  fuzz::require(second.ok && second.body.SerializeAsString() == result.body.SerializeAsString(),
                "the body survives");
}

com::Message message_from(FuzzedDataProvider& input) {
  const bool good_header = input.ConsumeBool();
  const auto announced = input.ConsumeIntegralInRange<std::int32_t>(-2, 2);
  const auto protocol_type = input.ConsumeIntegral<std::uint16_t>();
  auto bytes = input.ConsumeRemainingBytes<std::uint8_t>();
  if (!good_header) {
    return com::make_message(0, std::move(bytes));
  }
  const auto size = static_cast<std::int64_t>(bytes.size()) + announced;
  return com::make_message(0, fuzz::framed(bytes, protocol_type, static_cast<std::uint32_t>(size)));
}

constexpr std::array checks{
    check<pb::EcuVariable>,         check<pb::EcuVariableReq>, check<pb::SystemParameterEntry>,
    check<pb::SystemParameterList>, check<pb::Signal>,         check<pb::SignalGroup>};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::silence();
  FuzzedDataProvider input(data, size);
  const auto check_as = input.PickValueInArray(checks);
  check_as(message_from(input));
  return 0;
}
