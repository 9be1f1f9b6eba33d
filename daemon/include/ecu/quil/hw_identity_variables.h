#pragma once

#include <ecu/quil/environment_variable.h>

/// The identity of the unit's hardware. Each variable takes one byte-array signal from its topic, checks it
/// and stores it as text. Unusable data is logged, and the last value is kept.
namespace ecu::quil {

/// The unit's serial number: ten decimal digits with a dash before the last four. Stored little-endian in
/// bytes 64 to 67 of the unit's EEPROM record.
class SerialNumberVariable final : public EnvironmentVariable {
 public:
  SerialNumberVariable();
  bool extract(const tamu::com::Message& msg) override;
};

/// The revision at the start of the hardware variant, up to three characters in lower case.
class HWVersionVariable final : public EnvironmentVariable {
 public:
  HWVersionVariable();
  bool extract(const tamu::com::Message& msg) override;
};

/// The hardware variant, unchanged.
class HWVariantVariable final : public EnvironmentVariable {
 public:
  HWVariantVariable();
  bool extract(const tamu::com::Message& msg) override;
};

/// The variant of the vehicle's network, in lower case.
class NetworkVariantVariable final : public EnvironmentVariable {
 public:
  NetworkVariantVariable();
  bool extract(const tamu::com::Message& msg) override;
};

}  // namespace ecu::quil
