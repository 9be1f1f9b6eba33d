#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <ecu/quil/hw_identity_variables.h>
#include <ecu/quil/signal_lookup.h>
#include <ecu/quil/value_text.h>
#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/logging/logging.h>

namespace ecu::quil {

namespace logging = tamu::logging;
namespace topics = tamu::com::topics;

namespace {

constexpr SignalLookup serial_number_lookup{
    .reporter = "SerialNumberVariable", .action = "deserialize", .signal = "data", .reported_signal = "data"};
constexpr SignalLookup hw_version_lookup{
    .reporter = "HWVersionVariable", .action = "unpack", .signal = "variant", .reported_signal = "variant"};
constexpr SignalLookup hw_variant_lookup{
    .reporter = "HWVariantVariable", .action = "unpack", .signal = "variant", .reported_signal = "variant"};
// Reported under the hardware variant's signal name, which existing log filters rely on.
constexpr SignalLookup network_variant_lookup{.reporter = "NetworkVariant",
                                              .action = "unpack",
                                              .signal = "network_variant",
                                              .reported_signal = "variant"};

constexpr std::size_t serial_offset = 64;
constexpr std::size_t serial_size = 4;
constexpr std::size_t serial_digits = 10;
constexpr std::size_t digits_after_dash = 4;

constexpr std::size_t hw_version_length = 3;

std::uint32_t little_endian(std::span<const std::uint8_t, serial_size> bytes) {
  return std::uint32_t{bytes[0]} | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
         std::uint32_t{bytes[3]} << 24;
}

std::optional<std::string> serial_number_text(std::uint32_t serial) {
  if (serial == UINT32_MAX) {
    logging::notice("Ignoring invalid serial number (0xFFFFFFFF)");
    return std::nullopt;
  }
  logging::debug("before stoull: ", logging::hex(serial, 2 * serial_size));
  std::string text = std::to_string(serial);
  if (text.size() != serial_digits) {
    logging::notice("Unexpected size of serial number extract: (", text.size(), ") expected: ", serial_digits,
                    ", value: '", text);
    return std::nullopt;
  }
  return text.insert(serial_digits - digits_after_dash, 1, '-');
}

}  // namespace

SerialNumberVariable::SerialNumberVariable()
    : EnvironmentVariable("serialnumber", topics::serial_number, VariableSource::SIGNAL) {}

bool SerialNumberVariable::extract(const tamu::com::Message& msg) {
  const auto signal = find_signal(serial_number_lookup, topic(), msg);
  if (!signal) {
    return false;
  }
  const std::span<const std::uint8_t> data = signal->data();
  if (data.size() < serial_offset + serial_size) {
    logging::module(serial_number_lookup.reporter)
        .error("Unable to extract S/N from 'data' signal,not enough elements: ", data.size());
    return false;
  }
  const auto text = serial_number_text(little_endian(data.subspan<serial_offset, serial_size>()));
  if (!text) {
    return false;
  }
  logging::info("Serial Number: ", *text);
  set(*text, msg.get_timestamp());
  return true;
}

HWVersionVariable::HWVersionVariable()
    : EnvironmentVariable("hwversion", topics::hardware_variant, VariableSource::SIGNAL) {}

bool HWVersionVariable::extract(const tamu::com::Message& msg) {
  const auto signal = find_signal(hw_version_lookup, topic(), msg);
  if (!signal) {
    return false;
  }
  if (is_unset(signal->data())) {
    logging::module(hw_version_lookup.reporter).notice("data is empty or all 0xff or null, ignore.");
    return false;
  }
  std::string text = text_until_zero(signal->data());
  if (text.size() < hw_version_length) {
    logging::module(hw_version_lookup.reporter).notice("Received string too short");
    return false;
  }
  text = lower_case(text.substr(0, std::min(text.find('_'), hw_version_length)));
  logging::info("HW Version: ", text);
  set(text, msg.get_timestamp());
  return true;
}

HWVariantVariable::HWVariantVariable()
    : EnvironmentVariable("hwvariant", topics::hardware_variant, VariableSource::SIGNAL) {}

bool HWVariantVariable::extract(const tamu::com::Message& msg) {
  const auto signal = find_signal(hw_variant_lookup, topic(), msg);
  if (!signal) {
    return false;
  }
  if (is_unset(signal->data())) {
    logging::module(hw_variant_lookup.reporter).debug("data is empty or all 0xff or null, ignore.");
    return false;
  }
  std::string text = text_until_zero(signal->data());
  logging::info("HW Variant: '", text, "'");
  set(std::move(text), msg.get_timestamp());
  return true;
}

NetworkVariantVariable::NetworkVariantVariable()
    : EnvironmentVariable("vehiclevariant", topics::network_variant, VariableSource::SIGNAL) {}

bool NetworkVariantVariable::extract(const tamu::com::Message& msg) {
  const auto signal = find_signal(network_variant_lookup, topic(), msg);
  if (!signal) {
    return false;
  }
  if (is_unset(signal->data())) {
    logging::module(network_variant_lookup.reporter).debug("data is empty or all 0xff or nill, ignore.");
    return false;
  }
  std::string text = lower_case(text_until_zero(signal->data()));
  logging::info("NetworkVariant (VehicleVariant): '", text, "'");
  set(std::move(text), msg.get_timestamp());
  return true;
}

}  // namespace ecu::quil
