#include <array>
#include <cstdint>
#include <limits>
#include <span>
#include <string_view>
#include <utility>

#include <ecu/quil/hw_property_variables.h>
#include <ecu/quil/signal_lookup.h>
#include <ecu/tamu/logging/logging.h>

namespace ecu::quil {

namespace logging = tamu::logging;

namespace {

constexpr const char* hw_properties_topic = "rt/system/hw_properties";

constexpr std::array<std::string_view, 5> modem_types{"NONE", "2G_3G", "LTE_CAT4_L210", "LTE_CAT4_L280",
                                                      "LTE_CAT6"};
constexpr std::array<std::string_view, 4> antennas{"NONE", "INTERNAL_R07", "INTERNAL_R08", "EXTERNAL_R07"};

// Truncated toward zero; what a 32-bit number cannot hold becomes its nearest, and what is no number becomes
// 0.
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

std::string property_text(const tamu::rt::Signal& signal) {
  const std::string_view name = signal.name();
  if (name == "modem_type") {
    return enumerator(modem_types, signal.value_scaled());
  }
  if (name == "diversity_antenna") {
    return enumerator(antennas, signal.value_scaled());
  }
  if (name == "region" || name == "vehicle_type") {
    return lower_case(text_until_zero(signal.data()));
  }
  return signal.value_scaled() == 0.0 ? "false" : "true";
}

}  // namespace

HWPropertyVariable::HWPropertyVariable(const std::string& name, std::string signal_name)
    : EnvironmentVariable(name, hw_properties_topic, VariableSource::SIGNAL),
      m_signal_name(std::move(signal_name)) {}

bool HWPropertyVariable::extract(const tamu::com::Message& msg) {
  const SignalLookup lookup{"HWPropertyVariable", "unpack", m_signal_name, m_signal_name};
  const auto signal = find_signal(lookup, topic(), msg);
  if (!signal) {
    return false;
  }
  std::string text = property_text(*signal);
  logging::info("HW Property(", m_signal_name, "): '", text, "'");
  set(std::move(text), msg.get_timestamp());
  return true;
}

}  // namespace ecu::quil
