#include <algorithm>
#include <bit>

#include "fuzz/signal_groups.h"
#include "fuzz/wire_reader.h"

// Unpacks one message after another and compares each with the result of an independent reader.
namespace {

using namespace ecu::tamu;

const fuzz::WireSignal* last_of(const std::vector<fuzz::WireSignal>& signals, std::string_view name) {
  const auto found = std::find_if(signals.rbegin(), signals.rend(),
                                  [name](const fuzz::WireSignal& signal) { return signal.name == name; });
  return found == signals.rend() ? nullptr : &*found;
}

void check(const std::string& topic, const fuzz::Bytes& body, const com::Message& message) {
  const auto expected = fuzz::read_signal_group(body);
  const auto unpacked = rt::SignalAdapter::instance().unpack(topic, message);
  fuzz::require(unpacked.ok() == expected.has_value(), "both readers take it, or neither");
  if (!expected) {
    fuzz::require(unpacked.error() == rt::UnpackError::bad_body, "the body is at fault");
    return;
  }
  for (const std::string_view name : rt::catalogue_signals(topic)) {
    const fuzz::WireSignal* wanted = last_of(*expected, name);
    const rt::Signal* signal = (*unpacked)->signal(name);
    fuzz::require((signal == nullptr) == (wanted == nullptr), "a signal is there as on the wire");
    if (wanted != nullptr) {
      fuzz::require(signal->data() == wanted->data && signal->status() == wanted->status &&
                        std::bit_cast<std::uint64_t>(signal->value_scaled()) ==
                            std::bit_cast<std::uint64_t>(wanted->value),
                    "a signal's fields are those of the wire");
    }
  }
  fuzz::require((*unpacked)->signal("no such signal") == nullptr, "only the catalogue's signals are there");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::silence();
  FuzzedDataProvider input(data, size);
  for (int messages = 0; messages < 8 && input.remaining_bytes() > 0; ++messages) {
    const std::string topic = input.PickValueInArray(fuzz::signal_topics);
    const fuzz::Bytes body = fuzz::group_from(input, topic);
    const auto message =
        com::make_message(input.ConsumeIntegralInRange<std::uint64_t>(0, 1), fuzz::framed(body));
    for (auto times = input.ConsumeIntegralInRange(1, 2); times > 0; --times) {
      check(topic, body, message);
    }
  }
  return 0;
}
