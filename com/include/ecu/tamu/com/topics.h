#pragma once

/// The bus topics on which several programs agree (MQTT 3.1.1, 4.7). Names ending in `_prefix` are followed
/// by a name; those ending in `_filter` are topic filters.
namespace ecu::tamu::com::topics {

/// A variable: followed by its name.
inline constexpr const char* variable_prefix = "system/var/";
inline constexpr const char* all_variables_filter = "system/var/#";

/// Whether a client is on line: followed by its client identifier. The payload is one of the two texts.
inline constexpr const char* presence_prefix = "system/presence/";
inline constexpr const char* daemon_presence = "system/presence/quil";
inline constexpr const char* presence_online = "online";
inline constexpr const char* presence_offline = "offline";

/// What a unit publishes at the broker of its fleet, after the prefix of the fleet and the unit's name: a
/// variable (followed by its name), the daemon's presence, the unit's own presence, which has a third text,
/// and when its present or last connection began.
inline constexpr const char* default_fleet_prefix = "fleet";
inline constexpr const char* fleet_variable_prefix = "var/";
inline constexpr const char* fleet_daemon = "daemon";
inline constexpr const char* fleet_presence = "presence";
inline constexpr const char* fleet_connected_since = "connected_since";
inline constexpr const char* presence_lost = "lost";

/// System parameters: requests to the daemon, and its answers. The answers to a request for chosen parameters
/// differ by the identifier inside; their topic has nothing after the slash.
inline constexpr const char* parameter_request = "system/quil/request/sysparam";
inline constexpr const char* all_parameters_request = "system/quil/request/sysparams";
inline constexpr const char* parameter_write = "system/sysparams/write";
inline constexpr const char* parameter_answer = "system/sysparam/";
inline constexpr const char* all_parameters_answer = "system/sysparams";

/// Values of the secure storage.
inline constexpr const char* secure_storage_prefix = "system/quil/secstore/";
inline constexpr const char* secure_storage_filter = "system/quil/secstore/#";
inline constexpr const char* set_master = "system/quil/secstore/setmaster";
inline constexpr const char* get_master = "system/quil/secstore/getmaster";
inline constexpr const char* set_remote = "system/quil/secstore/setremote";
inline constexpr const char* get_remote = "system/quil/secstore/getremote";

/// Signal groups of the real-time side.
inline constexpr const char* signal_group_prefix = "rt/";
inline constexpr const char* signal_group_filter = "rt/#";
inline constexpr const char* ignition = "rt/io/kl15";
inline constexpr const char* serial_number = "rt/system/rtc_ee";
inline constexpr const char* hardware_variant = "rt/system/hw_variant";
inline constexpr const char* network_variant = "rt/system/network_variant";
inline constexpr const char* hardware_properties = "rt/system/hw_properties";
inline constexpr const char* hypervisor_version = "rt/system/version_hypervisor";
inline constexpr const char* csp_version = "rt/system/version_csp";
inline constexpr const char* tele_kernel_version = "rt/system/version_tele_kernel";
inline constexpr const char* tele_dtb_version = "rt/system/version_tele_dtb";
inline constexpr const char* linux_kernel_version = "rt/system/version_linux_kernel";
inline constexpr const char* update_kernel_version = "rt/system/version_update_kernel";
inline constexpr const char* update_dtb_version = "rt/system/version_update_dtb";

/// Vehicle identification (SAE J1939-71, PGN 65260): followed by the sender's source address, two hexadecimal
/// digits.
inline constexpr const char* vehicle_identification_prefix = "rt/j1939can/rx/vi_";
inline constexpr const char* vehicle_identification_00 = "rt/j1939can/rx/vi_00";
inline constexpr const char* vehicle_identification_ee = "rt/j1939can/rx/vi_ee";
inline constexpr const char* vehicle_identification_fe = "rt/j1939can/rx/vi_fe";

/// Requests to the vehicle network (SAE J1939-21, PGN 0xEA00).
inline constexpr const char* vehicle_request = "rt/j1939can/tx/rqst_fb_ee";
inline constexpr const char* vehicle_transmission_filter = "rt/j1939can/tx/#";

}  // namespace ecu::tamu::com::topics
