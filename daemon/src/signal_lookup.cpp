#include <algorithm>
#include <cctype>
#include <utility>

#include <ecu/quil/signal_lookup.h>
#include <ecu/tamu/logging/logging.h>

namespace ecu::quil {

namespace logging = tamu::logging;

std::shared_ptr<const tamu::rt::SignalGroup> unpack_group(const SignalLookup& lookup,
                                                          const std::string& topic,
                                                          const tamu::com::Message& msg) {
  auto group = tamu::rt::SignalAdapter::instance().unpack(topic, msg);
  if (!group) {
    logging::error("[", lookup.reporter, "] Unable to ", lookup.action, " (error ",
                   static_cast<int>(group.error()), ") message for topic: ", topic);
    return nullptr;
  }
  return std::move(group).value();
}

const tamu::rt::Signal* find_signal(const SignalLookup& lookup, const std::string& topic,
                                    const tamu::rt::SignalGroup& group) {
  const tamu::rt::Signal* signal = group.signal(lookup.signal);
  if (signal == nullptr) {
    logging::error("[", lookup.reporter, "] Unable to extract '", lookup.reported_signal,
                   "' signal from SignalGroup for topic: ", topic);
  }
  return signal;
}

std::shared_ptr<const tamu::rt::Signal> find_signal(const SignalLookup& lookup, const std::string& topic,
                                                    const tamu::com::Message& msg) {
  auto group = unpack_group(lookup, topic, msg);
  const tamu::rt::Signal* signal = group ? find_signal(lookup, topic, *group) : nullptr;
  return signal != nullptr ? std::shared_ptr<const tamu::rt::Signal>(std::move(group), signal) : nullptr;
}

bool is_unset(std::span<const std::uint8_t> bytes) {
  const auto all = [bytes](std::uint8_t value) {
    return std::all_of(bytes.begin(), bytes.end(), [value](std::uint8_t byte) { return byte == value; });
  };
  return all(0xff) || all(0x00);
}

std::string text_until_zero(std::span<const std::uint8_t> bytes) {
  return {bytes.begin(), std::find(bytes.begin(), bytes.end(), 0)};
}

std::string lower_case(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

}  // namespace ecu::quil
