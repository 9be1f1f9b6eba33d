#include <utility>

#include <ecu/quil/environment_variable.h>
#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/pb/messages.pb.h>

namespace ecu::quil {

namespace {

constexpr const char* published_topic_prefix = "system/var/";

}  // namespace

EnvironmentVariable::EnvironmentVariable(std::string name, std::string topic, VariableSource source)
    : m_name(std::move(name)),
      m_source(source),
      m_topic(std::move(topic)),
      m_published_topic(published_topic_prefix + m_name) {}

bool EnvironmentVariable::extract(const tamu::com::Message& /*msg*/) {
  return false;
}

const std::string& EnvironmentVariable::value() const {
  return m_value;
}

std::uint64_t EnvironmentVariable::timestamp() const {
  return m_timestamp;
}

std::optional<tamu::com::Message> EnvironmentVariable::to_message() const {
  thread_local tamu::pb::EcuVariable variable;  // kept for its allocations
  variable.Clear();
  // value() may refresh what timestamp() returns, and so comes first.
  if (const std::string& text = value(); !text.empty()) {
    variable.set_value(text);
    variable.set_timestamp(timestamp());
  }
  return tamu::com::PbInternalMessageAdapter<tamu::pb::EcuVariable>().serialize(variable);
}

void EnvironmentVariable::set(std::string value, std::uint64_t timestamp) {
  m_value = std::move(value);
  m_timestamp = timestamp;
}

}  // namespace ecu::quil
