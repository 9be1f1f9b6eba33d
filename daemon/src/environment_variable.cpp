#include <utility>

#include <ecu/quil/environment_variable.h>
#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/pb/messages.pb.h>

namespace ecu::quil {

EnvironmentVariable::EnvironmentVariable(std::string name, std::string topic, VariableSource source)
    : m_name(std::move(name)),
      m_source(source),
      m_topic(std::move(topic)),
      m_published_topic(tamu::com::topics::variable_prefix + m_name) {}

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
  tamu::pb::EcuVariable variable;
  // value() may refresh what timestamp() returns, and so comes first.
  if (!value().empty()) {
    variable.set_value(value());
    variable.set_timestamp(timestamp());
  }
  return tamu::com::PbInternalMessageAdapter<tamu::pb::EcuVariable>().serialize(variable);
}

void EnvironmentVariable::set(std::string value, std::uint64_t timestamp) {
  replace(m_value, std::move(value));
  m_timestamp = timestamp;
}

void EnvironmentVariable::replace(std::string& held, std::string text) noexcept {
  // An assignment would keep the memory of a long text for the short ones that follow it.
  held.swap(text);
}

}  // namespace ecu::quil
