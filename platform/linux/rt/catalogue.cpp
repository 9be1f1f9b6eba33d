#include "rt/catalogue.h"

#include <algorithm>
#include <array>

#include <ecu/tamu/rt/signal_adapter.h>

namespace ecu::tamu::rt {

namespace {

using Names = std::string_view;

constexpr Names rtc_ee[] = {"data"};
constexpr Names vehicle_identification[] = {"data", "nof_bytes"};
constexpr Names hw_variant[] = {"variant"};
constexpr Names version[] = {"version"};
constexpr Names network_variant[] = {"network_variant"};
constexpr Names hw_properties[] = {
    "vehicle_type",      "region",        "modem_type",
    "diversity_antenna", "is_wifi_bt",    "is_external_wifi_bt_antenna",
    "is_gnss",           "is_ethernet1",  "is_ethernet2",
    "is_accelerometer",  "is_digital_io", "is_d8",
    "is_can1",           "is_can2",       "is_network_management",
    "is_int_sim",        "is_ext_sim",
};
constexpr Names kl15[] = {"kl15"};
constexpr Names pgn_request[] = {"parametergroupnumberrqst"};

constexpr std::array catalogue{
    CatalogueEntry{"rt/system/rtc_ee", rtc_ee},
    CatalogueEntry{"rt/j1939can/rx/vi_00", vehicle_identification},
    CatalogueEntry{"rt/j1939can/rx/vi_ee", vehicle_identification},
    CatalogueEntry{"rt/j1939can/rx/vi_fe", vehicle_identification},
    CatalogueEntry{"rt/system/hw_variant", hw_variant},
    CatalogueEntry{"rt/system/version_hypervisor", version},
    CatalogueEntry{"rt/system/version_csp", version},
    CatalogueEntry{"rt/system/version_tele_kernel", version},
    CatalogueEntry{"rt/system/version_tele_dtb", version},
    CatalogueEntry{"rt/system/version_linux_kernel", version},
    CatalogueEntry{"rt/system/version_update_kernel", version},
    CatalogueEntry{"rt/system/version_update_dtb", version},
    CatalogueEntry{"rt/system/network_variant", network_variant},
    CatalogueEntry{"rt/system/hw_properties", hw_properties},
    CatalogueEntry{"rt/io/kl15", kl15},
    CatalogueEntry{"rt/j1939can/tx/rqst_fb_ee", pgn_request},
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
