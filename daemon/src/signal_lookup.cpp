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
    logging::module(lookup.reporter)
        .error("Unable to ", lookup.action, " (error ", static_cast<int>(group.error()),
               ") message for topic: ", topic);
    return nullptr;
  }
  return std::move(group).value();
}

const tamu::rt::Signal* find_signal(const SignalLookup& lookup, const std::string& topic,
                                    const tamu::rt::SignalGroup& group) {
  const tamu::rt::Signal* signal = group.signal(lookup.signal);
  if (signal == nullptr) {
    logging::module(lookup.reporter)
        .error("Unable to extract '", lookup.reported_signal, "' signal from SignalGroup for topic: ", topic);
  }
  return signal;
}

std::shared_ptr<const tamu::rt::Signal> find_signal(const SignalLookup& lookup, const std::string& topic,
                                                    const tamu::com::Message& msg) {
  auto group = unpack_group(lookup, topic, msg);
  const tamu::rt::Signal* signal = group ? find_signal(lookup, topic, *group) : nullptr;
  return signal != nullptr ? std::shared_ptr<const tamu::rt::Signal>(std::move(group), signal) : nullptr;
}

}  // namespace ecu::quil
