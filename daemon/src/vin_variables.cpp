#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include <ecu/quil/locked.h>
#include <ecu/quil/signal_lookup.h>
#include <ecu/quil/vin_variables.h>
#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/logging/logging.h>

namespace ecu::quil {

namespace logging = tamu::logging;

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::string_view size_signal = "nof_bytes";
constexpr std::string_view allowed_characters = "abcdefghijklmnopqrstuvwxyz0123456789-_.";
constexpr std::uint32_t least_confirmations = 2;
constexpr auto logger = logging::module("VinVariable");

// The bytes whose index is less than `count`, which may be any floating-point value.
Bytes counted_bytes(Bytes data, double count) {
  if (!(count > 0)) {
    return {};
  }
  return count < static_cast<double>(data.size()) ? data.first(static_cast<std::size_t>(std::ceil(count)))
                                                  : data;
}

bool is_allowed(std::uint8_t byte) {
  return allowed_characters.find(static_cast<char>(std::tolower(byte))) != std::string_view::npos;
}

std::string hex(std::uint8_t byte) {
  std::array<char, 2> digits{};
  return {digits.begin(), std::to_chars(digits.begin(), digits.end(), byte, 16).ptr};
}

void log_raw(double count, Bytes bytes) {
  if (!logging::enabled(logging::Level::debug)) {
    return;
  }
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += hex(byte);
  }
  logging::debug("Vehicle_id(", count, ") RAW: ", text);
}

// The data that the sender's count covers. Nothing, after a line in the log, when the group lacks a signal or
// the count is 0.
std::optional<Bytes> received_bytes(const SignalLookup& lookup, const std::string& topic,
                                    const tamu::rt::SignalGroup& group) {
  const tamu::rt::Signal* data = find_signal(lookup, topic, group);
  if (data == nullptr) {
    return std::nullopt;
  }
  const tamu::rt::Signal* size = group.signal(size_signal);
  if (size == nullptr) {
    logger.error("Unable to extract '", size_signal, "'signal from SignalGroup for topic: ", topic);
    return std::nullopt;
  }
  const double count = size->value_scaled();
  if (count == 0.0) {
    logging::info("Ignoring VIN with zero length");
    return std::nullopt;
  }
  const Bytes bytes = counted_bytes(data->data(), count);
  log_raw(count, bytes);
  return bytes;
}

void log_dropped(Bytes bytes) {
  if (!logging::enabled(logging::Level::debug)) {
    return;
  }
  std::size_t dropped = 0;
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (!is_allowed(bytes[i])) {
      ++dropped;
      text.append("[").append(std::to_string(i)).append(",0x").append(hex(bytes[i])).append("] ");
    }
  }
  if (dropped > 0) {
    logging::debug("Threw away ", dropped, " chars from VIN [<pos>,<val>]: ", text);
  }
}

}  // namespace

VinVariable::VinVariable(const std::string& name, const std::string& topic)
    : EnvironmentVariable(name, topic, VariableSource::SIGNAL) {}

bool VinVariable::extract(const tamu::com::Message& msg) {
  const SignalLookup lookup{.reporter = "VinVariable",
                            .action = "deserialize",
                            .signal = m_data_signal,
                            .reported_signal = m_data_signal};
  const auto group = unpack_group(lookup, topic(), msg);
  const auto bytes = group ? received_bytes(lookup, topic(), *group) : std::nullopt;
  if (!bytes) {
    return false;
  }
  std::string vin;
  std::copy_if(bytes->begin(), bytes->end(), std::back_inserter(vin), is_allowed);
  log_dropped(*bytes);
  if (vin.empty()) {
    logging::info("Ignoring VIN with invalid data");
    return false;
  }
  replace(m_last_vin, vin);
  logging::info("Vehicle ID: ", vin);
  set(std::move(vin), msg.get_timestamp());
  return true;
}

VinVariableJ1939Ecu::VinVariableJ1939Ecu(const std::string& topic_suffix, std::shared_ptr<std::mutex> mutex,
                                         std::shared_ptr<std::condition_variable> condition,
                                         std::shared_ptr<std::atomic_bool> requester_running,
                                         std::uint32_t confirm_required)
    : VinVariable("vehicleid", tamu::com::topics::vehicle_identification_prefix + topic_suffix),
      m_mutex(std::move(mutex)),
      m_condition(std::move(condition)),
      m_requester_running(std::move(requester_running)),
      m_confirm_required(std::max(confirm_required, least_confirmations)) {}

bool VinVariableJ1939Ecu::extract(const tamu::com::Message& msg) {
  if (!VinVariable::extract(msg)) {
    m_confirm_count = 0;
    return false;
  }
  notify_requester();
  if (m_last_vin != m_prev_msg) {
    replace(m_prev_msg, m_last_vin);
    m_confirm_count = 1;
    return false;
  }
  const std::uint32_t count = ++m_confirm_count;
  logging::debug("Received ", count, "/", m_confirm_required, " to confirm VIN :", m_last_vin,
                 "; m_prev_msg = ", m_prev_msg);
  if (count < m_confirm_required) {
    return false;
  }
  m_confirm_count = 0;
  *m_requester_running = false;
  return true;
}

void VinVariableJ1939Ecu::notify_requester() const {
  const auto lock = locked(m_mutex);
  m_condition->notify_all();
}

}  // namespace ecu::quil
