#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <ecu/tamu/com/message.h>

namespace ecu::quil {

/// How a variable gets its value, which decides when it is published.
enum class VariableSource : std::uint32_t {
  LOCAL = 0,     // once, at construction, from the local machine
  SYSPARAM = 1,  // on demand, from the system parameters
  SIGNAL = 2,    // from messages on the variable's topic
};

/// One value that the daemon publishes on "system/var/" + name. Not thread-safe.
class EnvironmentVariable {
 public:
  /// A variable without a value. `topic` is empty for a variable that no message changes.
  EnvironmentVariable(std::string name, std::string topic, VariableSource source);
  virtual ~EnvironmentVariable() = default;

  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

  /// Takes the value from a message received on `topic()`. True when a value was stored, which must then be
  /// published. Logs one line and returns false if the message is ignored; value and timestamp do not change.
  virtual bool extract(const tamu::com::Message& msg);

  /// The current value; empty until there is one.
  [[nodiscard]] virtual const std::string& value() const;

  /// When the current value was received or set, in nanoseconds since boot; 0 until there is one.
  [[nodiscard]] virtual std::uint64_t timestamp() const;

  /// The framed `EcuVariable`, with both fields unset while the value is empty. Logs one line and returns
  /// std::nullopt if it cannot be serialized.
  [[nodiscard]] virtual std::optional<tamu::com::Message> to_message() const;

  [[nodiscard]] const std::string& name() const noexcept { return m_name; }
  [[nodiscard]] const std::string& topic() const noexcept { return m_topic; }
  /// "system/var/" + name.
  [[nodiscard]] const std::string& published_topic() const noexcept { return m_published_topic; }
  [[nodiscard]] VariableSource source() const noexcept { return m_source; }

 protected:
  /// Stores a value together with the time that belongs to it.
  void set(std::string value, std::uint64_t timestamp);

  /// Stores `text` in `held` and releases the memory of the text that was there.
  static void replace(std::string& held, std::string text) noexcept;

 private:
  std::string m_name;
  std::string m_value;
  VariableSource m_source;
  std::string m_topic;
  std::uint64_t m_timestamp = 0;
  std::string m_published_topic;
};

}  // namespace ecu::quil
