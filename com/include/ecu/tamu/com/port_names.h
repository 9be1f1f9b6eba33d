#pragma once

/// The device nodes of the queueing ports, named as the daemon uses them.
namespace ecu::tamu::com::port_names {

inline constexpr const char* device_folder = "/dev/qport";
inline constexpr const char* parameter_receive = "telematics_param_receive";
inline constexpr const char* parameter_send = "telematics_param_send";

}  // namespace ecu::tamu::com::port_names
