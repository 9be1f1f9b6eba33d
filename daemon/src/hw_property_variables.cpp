#include <array>
#include <cstdint>
#include <limits>
#include <span>
#include <string_view>
#include <utility>

#include <ecu/quil/hw_property_variables.h>
#include <ecu/quil/signal_lookup.h>
#include <ecu/quil/value_text.h>
#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/logging/logging.h>

namespace ecu::quil {

namespace logging = tamu::logging;

namespace {

constexpr std::array<std::string_view, 5> modem_types{"NONE", "2G_3G", "LTE_CAT4_L210", "LTE_CAT4_L280",
                                                      "LTE_CAT6"};
constexpr std::array<std::string_view, 4> antennas{"NONE", "INTERNAL_R07", "INTERNAL_R08", "EXTERNAL_R07"};

// Truncates and clamps to 32 bits; NaN becomes 0.
std::uint32_t saturated(double value) {
  constexpr std::uint32_t largest = std::numeric_limits<std::uint32_t>::max();
  if (!(value > 0)) {
    return 0;
  }
  return value < largest ? static_cast<std::uint32_t>(value) : largest;
}

std::string enumerator(std::span<const std::string_view> names, double value) {
  const std::uint32_t index = saturated(value);
  return std::string(index < names.size() ? names[index] : "UNKNOWN");
}

std::string property_text(const tamu::rt::Signal& signal, PropertyKind kind) {
  switch (kind) {
    case PropertyKind::modem:
      return enumerator(modem_types, signal.value_scaled());
    case PropertyKind::antenna:
      return enumerator(antennas, signal.value_scaled());
    case PropertyKind::text:
      return lower_case(text_until_zero(signal.data()));
    case PropertyKind::flag:
      break;
  }
  return signal.value_scaled() == 0.0 ? "false" : "true";
}

}  // namespace

HWPropertyVariable::HWPropertyVariable(const std::string& name, const std::string& signal_name,
                                       PropertyKind kind)
    : EnvironmentVariable(name, tamu::com::topics::hardware_properties, VariableSource::SIGNAL),
      m_signal_name(signal_name),
      m_kind(kind) {}

bool HWPropertyVariable::extract(const tamu::com::Message& msg) {
  const SignalLookup lookup{.reporter = "HWPropertyVariable",
                            .action = "unpack",
                            .signal = m_signal_name,
                            .reported_signal = m_signal_name};
  const auto signal = find_signal(lookup, topic(), msg);
  if (!signal) {
    return false;
  }
  std::string text = property_text(*signal, m_kind);
  logging::info("HW Property(", m_signal_name, "): '", text, "'");
  set(std::move(text), msg.get_timestamp());
  return true;
}

}  // namespace ecu::quil
