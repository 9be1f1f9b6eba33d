#pragma once

#include <string>

#include <ecu/quil/environment_variable.h>
#include <ecu/quil/named_variable.h>

/// What the unit is fitted with. All properties come in one message, each in a signal of its own.
namespace ecu::quil {

/// One hardware property: a text in lower case, the name of an enumerator, or "true" or "false", as the
/// signal calls for.
class HWPropertyVariable : public EnvironmentVariable {
 public:
  HWPropertyVariable(const std::string& name, std::string signal_name);
  bool extract(const tamu::com::Message& msg) override;

 private:
  std::string m_signal_name;
};

template <FixedString Name, FixedString Signal>
using NamedHWProperty = NamedVariable<HWPropertyVariable, Name, Signal>;

using HWPropertyVehicleType = NamedHWProperty<"vehicletype", "vehicle_type">;
using HWPropertyRegion = NamedHWProperty<"hwregion", "region">;
using HWPropertyModemTypeVariable = NamedHWProperty<"modemtype", "modem_type">;
using HWPropertyDivAntennaVariable = NamedHWProperty<"divantenna", "diversity_antenna">;
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
