#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <ecu/quil/environment_variable.h>
#include <ecu/quil/fixed_string.h>
#include <ecu/tamu/com/topics.h>

/// Versions of the software on the unit.
namespace ecu::quil {

/// The version of one piece of software: the 16 bytes of its version record, unchanged. A record of only 0xff
/// bytes is not set and is ignored. A record of another size ends the process, after an ALERT line: sender
/// and daemon do not match.
class SWVersionVariable : public EnvironmentVariable {
 public:
  SWVersionVariable(const std::string& name, const std::string& topic);
  bool extract(const tamu::com::Message& msg) override;
};

/// The class of the version of one piece of software.
template <FixedString Name, const char* const& Topic>
class NamedSWVersion final : public SWVersionVariable {
 public:
  NamedSWVersion() : SWVersionVariable(Name.chars, Topic) {}
};

using HypervisorVersionVariable = NamedSWVersion<"versionhypervisor", tamu::com::topics::hypervisor_version>;
using CSPVersionVariable = NamedSWVersion<"versioncsp", tamu::com::topics::csp_version>;
using TeleKernelVersionVariable = NamedSWVersion<"versiontelekernel", tamu::com::topics::tele_kernel_version>;
using TeleDTBVersionVariable = NamedSWVersion<"versionteledtb", tamu::com::topics::tele_dtb_version>;
using TPAKernelVersionVariable = NamedSWVersion<"versiontpakernel", tamu::com::topics::linux_kernel_version>;
using UpdateKernelVersionVariable =
    NamedSWVersion<"versionupdatekernel", tamu::com::topics::update_kernel_version>;
using UpdateDTBVersionVariable = NamedSWVersion<"versionupdatedtb", tamu::com::topics::update_dtb_version>;

/// The boot loader's version, read from physical memory at construction; "Unknown" when it cannot be read.
class UBootVersionVariable final : public EnvironmentVariable {
 public:
  UBootVersionVariable();

  /// Replaces value and timestamp (nanoseconds since boot). Always true.
  bool set_data(const std::string& value, std::uint64_t timestamp);
};

/// The version of the unit's software as a whole, computed each time that it is read.
class TopVersionVariable final : public EnvironmentVariable {
 public:
  /// `value_function` returns the current version, or an empty text while there is none.
  explicit TopVersionVariable(std::function<std::string()> value_function);

  /// Calls the function. Throws std::bad_function_call when there is none.
  [[nodiscard]] const std::string& value() const override;

  /// When `value` first returned the version that it returned last, in nanoseconds since boot.
  [[nodiscard]] std::uint64_t timestamp() const override;

 private:
  std::function<std::string()> m_value_function;
  mutable std::string m_cached_value;
  mutable std::uint64_t m_cached_timestamp = 0;
};

}  // namespace ecu::quil
