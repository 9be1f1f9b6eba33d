#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include <ecu/tamu/com/message.h>
#include <ecu/tamu/rt/signal_adapter.h>

/// What the variables that are fed from signals share: finding the signal, reporting that it cannot be found,
/// and turning its bytes into text.
namespace ecu::quil {

/// How a variable's failures to find its signal read in the log.
struct SignalLookup {
  std::string_view reporter;         // stands in brackets at the start of each line
  std::string_view action;           // what fails when the message cannot be unpacked
  std::string_view signal;           // the signal to find
  std::string_view reported_signal;  // the name that the log gives it
};

/// The signals that `msg` carries on `topic`. Null after one ERROR line when it cannot be unpacked.
[[nodiscard]] std::shared_ptr<const tamu::rt::SignalGroup> unpack_group(const SignalLookup& lookup,
                                                                        const std::string& topic,
                                                                        const tamu::com::Message& msg);

/// The signal of a group that was received on `topic`. Null after one ERROR line when the group does not hold
/// it.
[[nodiscard]] const tamu::rt::Signal* find_signal(const SignalLookup& lookup, const std::string& topic,
                                                  const tamu::rt::SignalGroup& group);

/// Both in one: the signal that `msg` carries on `topic`, which keeps its group alive.
[[nodiscard]] std::shared_ptr<const tamu::rt::Signal> find_signal(const SignalLookup& lookup,
                                                                  const std::string& topic,
                                                                  const tamu::com::Message& msg);

/// Whether `bytes` hold nothing: no byte at all, nothing but 0xff, or nothing but zeros.
[[nodiscard]] bool is_unset(std::span<const std::uint8_t> bytes);

/// The characters before the first zero byte; all when there is none.
[[nodiscard]] std::string text_until_zero(std::span<const std::uint8_t> bytes);

/// `text` with every ASCII letter in lower case.
[[nodiscard]] std::string lower_case(std::string text);

}  // namespace ecu::quil
