#include <algorithm>
#include <span>
#include <utility>

#include <ecu/quil/signal_lookup.h>
#include <ecu/quil/uboot_version.h>
#include <ecu/quil/version_variables.h>
#include <ecu/tamu/date_time.h>
#include <ecu/tamu/logging/logging.h>

// The only assertion of this file guards against foreign input, and so is enabled in every build.
#undef NDEBUG
#include <cassert>

namespace ecu::quil {

namespace logging = tamu::logging;

namespace {

constexpr const char* memory_device = "/dev/mem";
constexpr std::size_t record_size = 16;

void log_record(const std::string& reporter, std::span<const std::uint8_t> record) {
  if (!logging::enabled(logging::Level::debug)) {
    return;
  }
  std::string numbers;
  for (const std::uint8_t byte : record) {
    numbers += std::to_string(byte);
  }
  logging::debug(reporter, "(", numbers, ") ");
}

}  // namespace

SWVersionVariable::SWVersionVariable(const std::string& name, const std::string& topic)
    : EnvironmentVariable(name, topic, VariableSource::SIGNAL) {}

bool SWVersionVariable::extract(const tamu::com::Message& msg) {
  const std::string reporter = "SWVersionVariable:" + name();
  const SignalLookup lookup{
      .reporter = reporter, .action = "deserialize", .signal = "version", .reported_signal = "version"};
  const auto sw_s = find_signal(lookup, topic(), msg);
  if (!sw_s) {
    return false;
  }
  if (sw_s->data().size() != record_size) {
    logging::module(reporter).log(logging::Level::alert, "The version record on ", topic(), " holds ",
                                  sw_s->data().size(), " bytes instead of ", record_size);
  }
  assert(sw_s->data().size() == 16);
  const auto& record = sw_s->data();
  log_record(reporter, record);
  if (std::all_of(record.begin(), record.end(), [](std::uint8_t byte) { return byte == 0xff; })) {
    logging::notice("Ignore unset ", reporter);
    return false;
  }
  std::string text(record.begin(), record.end());
  logging::info("SwVersion:", name(), ": ", text);
  set(std::move(text), msg.get_timestamp());
  return true;
}

UBootVersionVariable::UBootVersionVariable()
    : EnvironmentVariable("versionuboot", "", VariableSource::LOCAL) {
  const std::string version = read_uboot_version(memory_device);
  set_data(version, tamu::DateTime::time_since_boot_ns());
}

bool UBootVersionVariable::set_data(const std::string& value, std::uint64_t timestamp) {
  set(value, timestamp);
  return true;
}

TopVersionVariable::TopVersionVariable(std::function<std::string()> value_function)
    : EnvironmentVariable("topversion", "", VariableSource::SYSPARAM),
      m_value_function(std::move(value_function)) {}

const std::string& TopVersionVariable::value() const {
  std::string version = m_value_function();
  if (version != m_cached_value) {
    replace(m_cached_value, std::move(version));
    m_cached_timestamp = tamu::DateTime::time_since_boot_ns();
    logging::info("Top Version: ", m_cached_value);
  }
  return m_cached_value;
}

std::uint64_t TopVersionVariable::timestamp() const {
  return m_cached_timestamp;
}

}  // namespace ecu::quil
