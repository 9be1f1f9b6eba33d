#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <ecu/quil/hw_identity_variables.h>
#include <ecu/quil/signal_lookup.h>
#include <ecu/tamu/logging/logging.h>

namespace ecu::quil {

namespace logging = tamu::logging;

namespace {

constexpr const char* rtc_ee_topic = "rt/system/rtc_ee";
constexpr const char* hw_variant_topic = "rt/system/hw_variant";
constexpr const char* network_variant_topic = "rt/system/network_variant";

// The network variant is reported under the hardware variant's signal name; log filters know it so.
constexpr SignalLookup serial_number_lookup{"SerialNumberVariable", "deserialize", "data", "data"};
constexpr SignalLookup hw_version_lookup{"HWVersionVariable", "unpack", "variant", "variant"};
constexpr SignalLookup hw_variant_lookup{"HWVariantVariable", "unpack", "variant", "variant"};
constexpr SignalLookup network_variant_lookup{"NetworkVariant", "unpack", "network_variant", "variant"};

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
    : EnvironmentVariable("serialnumber", rtc_ee_topic, VariableSource::SIGNAL) {}

bool SerialNumberVariable::extract(const tamu::com::Message& msg) {
  const auto signal = find_signal(serial_number_lookup, topic(), msg);
  if (!signal) {
    return false;
  }
  const std::span<const std::uint8_t> data = signal->data();
  if (data.size() < serial_offset + serial_size) {
    logging::error("[SerialNumberVariable] Unable to extract S/N from 'data' signal,not enough elements: ",
                   data.size());
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
    : EnvironmentVariable("hwversion", hw_variant_topic, VariableSource::SIGNAL) {}

bool HWVersionVariable::extract(const tamu::com::Message& msg) {
  const auto signal = find_signal(hw_version_lookup, topic(), msg);
  if (!signal) {
    return false;
  }
  if (is_unset(signal->data())) {
    logging::notice("[HWVersionVariable] data is empty or all 0xff or null, ignore.");
    return false;
  }
  std::string text = text_until_zero(signal->data());
  if (text.size() < hw_version_length) {
    logging::notice("[HWVersionVariable] Received string too short");
    return false;
  }
  text = lower_case(text.substr(0, std::min(text.find('_'), hw_version_length)));
  logging::info("HW Version: ", text);
  set(text, msg.get_timestamp());
  return true;
}

HWVariantVariable::HWVariantVariable()
    : EnvironmentVariable("hwvariant", hw_variant_topic, VariableSource::SIGNAL) {}

bool HWVariantVariable::extract(const tamu::com::Message& msg) {
  const auto signal = find_signal(hw_variant_lookup, topic(), msg);
  if (!signal) {
    return false;
  }
  if (is_unset(signal->data())) {
    logging::debug("[HWVariantVariable] data is empty or all 0xff or null, ignore.");
    return false;
  }
  const std::string text = text_until_zero(signal->data());
  logging::info("HW Variant: '", text, "'");
  set(text, msg.get_timestamp());
  return true;
}

NetworkVariantVariable::NetworkVariantVariable()
    : EnvironmentVariable("vehiclevariant", network_variant_topic, VariableSource::SIGNAL) {}

bool NetworkVariantVariable::extract(const tamu::com::Message& msg) {
  const auto signal = find_signal(network_variant_lookup, topic(), msg);
  if (!signal) {
    return false;
  }
  if (is_unset(signal->data())) {
    logging::debug("[NetworkVariant] data is empty or all 0xff or nill, ignore.");
    return false;
  }
  const std::string text = lower_case(text_until_zero(signal->data()));
  logging::info("NetworkVariant (VehicleVariant): '", text, "'");
  set(text, msg.get_timestamp());
  return true;
}

}  // namespace ecu::quil
