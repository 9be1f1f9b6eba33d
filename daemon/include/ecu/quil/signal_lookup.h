#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <ecu/tamu/com/message.h>
#include <ecu/tamu/rt/signal_adapter.h>

/// What the variables that take their values from signals share: finding the signal, and reporting that it
/// cannot be found.
namespace ecu::quil {

/// Which signal a variable takes, and how the log reports that it cannot be found.
struct SignalLookup {
  std::string_view reporter;         // appears in brackets at the start of each line
  std::string_view action;           // what fails when the message cannot be unpacked
  std::string_view signal;           // the signal to find
  std::string_view reported_signal;  // its name in the log
};

/// The signals that `msg` carries on `topic`. Logs one ERROR line and returns null if it cannot be unpacked.
[[nodiscard]] std::shared_ptr<const tamu::rt::SignalGroup> unpack_group(const SignalLookup& lookup,
                                                                        const std::string& topic,
                                                                        const tamu::com::Message& msg);

/// The signal of a group that was received on `topic`. Logs one ERROR line and returns null if the group does
/// not hold it.
[[nodiscard]] const tamu::rt::Signal* find_signal(const SignalLookup& lookup, const std::string& topic,
                                                  const tamu::rt::SignalGroup& group);

/// Both in one: the signal that `msg` carries on `topic`, which keeps its group alive.
[[nodiscard]] std::shared_ptr<const tamu::rt::Signal> find_signal(const SignalLookup& lookup,
                                                                  const std::string& topic,
                                                                  const tamu::com::Message& msg);

}  // namespace ecu::quil
