#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <ecu/quil/environment_variable.h>
#include <ecu/quil/named_variable.h>

/// Versions of the software on the unit.
namespace ecu::quil {

/// The version of one piece of software: the 16 bytes of its version record as they stand. A record of
/// nothing but 0xff is not set and ignored. One of another size ends the process: the sender and this program
/// do not belong together.
class SWVersionVariable : public EnvironmentVariable {
 public:
  SWVersionVariable(const std::string& name, const std::string& topic);
  bool extract(const tamu::com::Message& msg) override;
};

template <FixedString Name, FixedString Topic>
using NamedSWVersion = NamedVariable<SWVersionVariable, Name, Topic>;

using HypervisorVersionVariable = NamedSWVersion<"versionhypervisor", "rt/system/version_hypervisor">;
using CSPVersionVariable = NamedSWVersion<"versioncsp", "rt/system/version_csp">;
using TeleKernelVersionVariable = NamedSWVersion<"versiontelekernel", "rt/system/version_tele_kernel">;
using TeleDTBVersionVariable = NamedSWVersion<"versionteledtb", "rt/system/version_tele_dtb">;
using TPAKernelVersionVariable = NamedSWVersion<"versiontpakernel", "rt/system/version_linux_kernel">;
using UpdateKernelVersionVariable = NamedSWVersion<"versionupdatekernel", "rt/system/version_update_kernel">;
using UpdateDTBVersionVariable = NamedSWVersion<"versionupdatedtb", "rt/system/version_update_dtb">;

/// The boot loader's version, read from physical memory at construction; "Unknown" when there is none to
/// read.
class UBootVersionVariable final : public EnvironmentVariable {
 public:
  UBootVersionVariable();

  /// Replaces value and time stamp (nanoseconds since boot). Always true.
  bool set_data(const std::string& value, std::uint64_t timestamp);
};

/// The version of the unit's software as a whole, asked for each time that it is read.
class TopVersionVariable final : public EnvironmentVariable {
 public:
  /// `value_function` yields the present version, or an empty text while there is none.
  explicit TopVersionVariable(std::function<std::string()> value_function);

  /// Asks for the version. Throws std::bad_function_call when there is no function to ask.
  [[nodiscard]] const std::string& value() const override;

  /// When `value` first saw the version that it returned last.
  [[nodiscard]] std::uint64_t timestamp() const override;

 private:
  std::function<std::string()> m_value_function;
  mutable std::string m_cached_value;
  mutable std::uint64_t m_cached_timestamp = 0;
};

}  // namespace ecu::quil
