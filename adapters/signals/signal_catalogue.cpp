#include "signals/signal_catalogue.h"

#include <algorithm>
#include <array>

#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/rt/signal_adapter.h>

namespace ecu::tamu::rt {

namespace {

namespace topics = com::topics;

using Names = std::string_view;

constexpr Names rtc_ee_signals[] = {"data"};
constexpr Names vehicle_identification_signals[] = {"data", "nof_bytes"};
constexpr Names hw_variant_signals[] = {"variant"};
constexpr Names version_signals[] = {"version"};
constexpr Names network_variant_signals[] = {"network_variant"};
constexpr Names hw_properties_signals[] = {
    "vehicle_type",      "region",        "modem_type",
    "diversity_antenna", "is_wifi_bt",    "is_external_wifi_bt_antenna",
    "is_gnss",           "is_ethernet1",  "is_ethernet2",
    "is_accelerometer",  "is_digital_io", "is_d8",
    "is_can1",           "is_can2",       "is_network_management",
    "is_int_sim",        "is_ext_sim",
};
constexpr Names kl15_signals[] = {"kl15"};
constexpr Names pgn_request_signals[] = {"parametergroupnumberrqst"};

constexpr std::array catalogue{
    CatalogueEntry{topics::serial_number, rtc_ee_signals},
    CatalogueEntry{topics::vehicle_identification_00, vehicle_identification_signals},
    CatalogueEntry{topics::vehicle_identification_ee, vehicle_identification_signals},
    CatalogueEntry{topics::vehicle_identification_fe, vehicle_identification_signals},
    CatalogueEntry{topics::hardware_variant, hw_variant_signals},
    CatalogueEntry{topics::hypervisor_version, version_signals},
    CatalogueEntry{topics::csp_version, version_signals},
    CatalogueEntry{topics::tele_kernel_version, version_signals},
    CatalogueEntry{topics::tele_dtb_version, version_signals},
    CatalogueEntry{topics::linux_kernel_version, version_signals},
    CatalogueEntry{topics::update_kernel_version, version_signals},
    CatalogueEntry{topics::update_dtb_version, version_signals},
    CatalogueEntry{topics::network_variant, network_variant_signals},
    CatalogueEntry{topics::hardware_properties, hw_properties_signals},
    CatalogueEntry{topics::ignition, kl15_signals},
    CatalogueEntry{topics::vehicle_request, pgn_request_signals},
};

}  // namespace

const CatalogueEntry* find_topic(std::string_view topic) noexcept {
  const auto* found = std::find_if(catalogue.begin(), catalogue.end(),
                                   [topic](const CatalogueEntry& entry) { return entry.topic == topic; });
  return found == catalogue.end() ? nullptr : found;
}

std::span<const std::string_view> catalogue_signals(std::string_view topic) noexcept {
  const CatalogueEntry* entry = find_topic(topic);
  return entry == nullptr ? std::span<const std::string_view>() : entry->signals;
}

}  // namespace ecu::tamu::rt
