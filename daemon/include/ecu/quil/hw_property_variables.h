#pragma once

#include <string>

#include <ecu/quil/environment_variable.h>
#include <ecu/quil/fixed_string.h>

/// The unit's hardware properties. All come in one message, each in a signal of its own.
namespace ecu::quil {

/// How a property's signal becomes text.
enum class PropertyKind {
  flag,     // "true" or "false"
  modem,    // the name of a modem type
  antenna,  // the name of a diversity antenna
  text,     // the signal's bytes as text in lower case
};

/// One hardware property: the signal `signal_name`, converted according to `kind`.
class HWPropertyVariable : public EnvironmentVariable {
 public:
  HWPropertyVariable(const std::string& name, const std::string& signal_name, PropertyKind kind);
  bool extract(const tamu::com::Message& msg) override;

 private:
  std::string m_signal_name;
  PropertyKind m_kind;
};

/// The class of one property.
template <FixedString Name, FixedString Signal, PropertyKind Kind = PropertyKind::flag>
class NamedHWProperty final : public HWPropertyVariable {
 public:
  NamedHWProperty() : HWPropertyVariable(Name.chars, Signal.chars, Kind) {}
};

using HWPropertyVehicleType = NamedHWProperty<"vehicletype", "vehicle_type", PropertyKind::text>;
using HWPropertyRegion = NamedHWProperty<"hwregion", "region", PropertyKind::text>;
using HWPropertyModemTypeVariable = NamedHWProperty<"modemtype", "modem_type", PropertyKind::modem>;
using HWPropertyDivAntennaVariable =
    NamedHWProperty<"divantenna", "diversity_antenna", PropertyKind::antenna>;
using HWPropertyHasWifiBtVariable = NamedHWProperty<"haswifibt", "is_wifi_bt">;
using HWPropertyHasExternalWifiBtAntennaVariable =
    NamedHWProperty<"hasextwifibtant", "is_external_wifi_bt_antenna">;
using HWPropertyHasGnssVariable = NamedHWProperty<"hasgnss", "is_gnss">;
using HWPropertyHasEthernet1Variable = NamedHWProperty<"haseth1", "is_ethernet1">;
using HWPropertyHasEthernet2Variable = NamedHWProperty<"haseth2", "is_ethernet2">;
using HWPropertyHasAccelerometerVariable = NamedHWProperty<"hasaccelerometer", "is_accelerometer">;
using HWPropertyHasDigitalIoVariable = NamedHWProperty<"hasdigio", "is_digital_io">;
using HWPropertyHasD8Variable = NamedHWProperty<"hasd8", "is_d8">;
using HWPropertyHasCan1Variable = NamedHWProperty<"hascan1", "is_can1">;
using HWPropertyHasCan2Variable = NamedHWProperty<"hascan2", "is_can2">;
using HWPropertyHasNetworkManagementVariable = NamedHWProperty<"hasnm", "is_network_management">;
using HWPropertyHasIntSimVariable = NamedHWProperty<"hasintsim", "is_int_sim">;
using HWPropertyHasExtSimVariable = NamedHWProperty<"hasextsim", "is_ext_sim">;

}  // namespace ecu::quil
