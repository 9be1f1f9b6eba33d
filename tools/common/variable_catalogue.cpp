#include "common/variable_catalogue.h"

#include <algorithm>
#include <array>

#include <ecu/tamu/com/topics.h>

namespace ecu::tools {

namespace topics = tamu::com::topics;

namespace {

constexpr std::array<std::string_view, 2> flag_values{"false", "true"};
constexpr std::array<std::string_view, 6> modem_types{"NONE",          "2G_3G",    "LTE_CAT4_L210",
                                                      "LTE_CAT4_L280", "LTE_CAT6", "UNKNOWN"};
constexpr std::array<std::string_view, 5> antennas{"NONE", "INTERNAL_R07", "INTERNAL_R08", "EXTERNAL_R07",
                                                   "UNKNOWN"};

constexpr ValueForm text{.type = "text", .description = "text"};
constexpr ValueForm flag{.type = "boolean", .description = "true or false", .enumeration = flag_values};
constexpr ValueForm lower_case_text{
    .type = "text", .description = "text in lower case", .pattern = "^[^A-Z]+$"};
constexpr ValueForm version_record{
    .type = "text", .description = "16 characters, zero bytes included", .pattern = R"(^[\s\S]{16}$)"};

constexpr ValueForm one_of(std::span<const std::string_view> values, std::string_view description) {
  return {.type = "enumeration", .description = description, .enumeration = values};
}

constexpr std::string_view on_message = "with each message that has a value";
constexpr std::string_view on_set_version = "with each message, unless all 16 bytes are 0xff";

constexpr VariableInfo has(std::string_view name, std::string_view signal, std::string_view meaning) {
  return {name, meaning, {topics::hardware_properties}, signal, flag, on_message, "true"};
}

constexpr VariableInfo version_of(std::string_view name, std::string_view topic, std::string_view meaning) {
  return {name, meaning, {topic}, "version", version_record, on_set_version, "HV-2022.04.1-r12"};
}

constexpr std::array catalogue{
    VariableInfo{"serialnumber",
                 "serial number of the unit",
                 {topics::serial_number},
                 "data",
                 {.type = "text",
                  .description = "ten digits, a dash before the last four",
                  .pattern = "^[0-9]{6}-[0-9]{4}$"},
                 on_message,
                 "123456-7890"},
    VariableInfo{"vehicleid",
                 "vehicle identification number (VIN)",
                 {topics::vehicle_identification_00, topics::vehicle_identification_ee,
                  topics::vehicle_identification_fe},
                 "data, nof_bytes",
                 {.type = "text",
                  .description = "text of letters, digits, '-', '_' and '.'",
                  .pattern = "^[-A-Za-z0-9_.]+$"},
                 "when five receptions in a row from one source address agree",
                 "1M8GDM9AXKP042788"},
    VariableInfo{"hwversion",
                 "version of the hardware",
                 {topics::hardware_variant},
                 "variant",
                 {.type = "text",
                  .description = "one to three characters, in lower case",
                  .pattern = "^[^A-Z_]{1,3}$"},
                 on_message,
                 "r08"},
    VariableInfo{"versionuboot",
                 "version of the boot loader",
                 {},
                 "",
                 {.type = "text", .description = "text, \"Unknown\" when it cannot be read"},
                 "at daemon start",
                 "r12"},
    version_of("versionhypervisor", topics::hypervisor_version, "version of the hypervisor"),
    version_of("versioncsp", topics::csp_version, "version of the chip support package"),
    version_of("versiontelekernel", topics::tele_kernel_version, "version of the telematics kernel"),
    version_of("versionteledtb", topics::tele_dtb_version, "version of the telematics device tree"),
    version_of("versiontpakernel", topics::linux_kernel_version, "version of the application kernel"),
    version_of("versionupdatekernel", topics::update_kernel_version, "version of the update kernel"),
    version_of("versionupdatedtb", topics::update_dtb_version, "version of the update device tree"),
    VariableInfo{"hwvariant",
                 "variant of the hardware",
                 {topics::hardware_variant},
                 "variant",
                 text,
                 on_message,
                 "R08_B1"},
    VariableInfo{"vehiclevariant",
                 "variant of the vehicle's network",
                 {topics::network_variant},
                 "network_variant",
                 lower_case_text,
                 on_message,
                 "truck_hd"},
    VariableInfo{"vehicletype",
                 "type of the vehicle",
                 {topics::hardware_properties},
                 "vehicle_type",
                 lower_case_text,
                 on_message,
                 "truck"},
    VariableInfo{"hwregion",
                 "region that the hardware is made for",
                 {topics::hardware_properties},
                 "region",
                 lower_case_text,
                 on_message,
                 "eu"},
    VariableInfo{"modemtype",
                 "modem that is fitted",
                 {topics::hardware_properties},
                 "modem_type",
                 one_of(modem_types, "NONE, 2G_3G, LTE_CAT4_L210, LTE_CAT4_L280, LTE_CAT6 or UNKNOWN"),
                 on_message,
                 "LTE_CAT6"},
    VariableInfo{"divantenna",
                 "diversity antenna that is fitted",
                 {topics::hardware_properties},
                 "diversity_antenna",
                 one_of(antennas, "NONE, INTERNAL_R07, INTERNAL_R08, EXTERNAL_R07 or UNKNOWN"),
                 on_message,
                 "INTERNAL_R08"},
    has("haswifibt", "is_wifi_bt", "Wi-Fi and Bluetooth are fitted"),
    has("hasextwifibtant", "is_external_wifi_bt_antenna",
        "an external Wi-Fi and Bluetooth antenna is fitted"),
    has("hasgnss", "is_gnss", "a satellite navigation receiver is fitted"),
    has("haseth1", "is_ethernet1", "the first Ethernet interface is fitted"),
    has("haseth2", "is_ethernet2", "the second Ethernet interface is fitted"),
    has("hasaccelerometer", "is_accelerometer", "an accelerometer is fitted"),
    has("hasdigio", "is_digital_io", "digital inputs and outputs are fitted"),
    has("hasd8", "is_d8", "the D8 interface is fitted"),
    has("hascan1", "is_can1", "the first CAN interface is fitted"),
    has("hascan2", "is_can2", "the second CAN interface is fitted"),
    has("hasnm", "is_network_management", "network management is available"),
    has("hasintsim", "is_int_sim", "an internal SIM is fitted"),
    has("hasextsim", "is_ext_sim", "an external SIM is fitted"),
    VariableInfo{"topversion",
                 "version of the unit's software as a whole: system parameter 0xa009",
                 {},
                 "",
                 {.type = "text", .description = "text, as the parameter has it"},
                 "at daemon start, and whenever system parameters arrive",
                 "TV-2026.11.0"},
};

}  // namespace

std::string VariableInfo::topic() const {
  return topic_of_variable(name);
}

std::span<const std::string_view> VariableInfo::sources() const noexcept {
  return {source_topics.begin(), std::ranges::find(source_topics, "")};
}

std::string VariableInfo::sources_text() const {
  std::string all;
  for (const std::string_view source : sources()) {
    all.append(all.empty() ? "" : ", ").append(source);
  }
  return all.empty() ? "-" : all;
}

std::span<const VariableInfo> variables() noexcept {
  return catalogue;
}

const VariableInfo* find_variable(std::string_view name) noexcept {
  const auto* const found = std::ranges::find(catalogue, name, &VariableInfo::name);
  return found == catalogue.end() ? nullptr : found;
}

std::optional<std::string_view> variable_of(std::string_view topic) {
  constexpr std::string_view prefix = topics::variable_prefix;
  return topic.starts_with(prefix) && topic.size() > prefix.size()
             ? std::optional(topic.substr(prefix.size()))
             : std::nullopt;
}

std::string topic_of_variable(std::string_view name) {
  return topics::variable_prefix + std::string(name);
}

Json json_of(const VariableInfo& info) {
  Json object{{"name", info.name},
              {"meaning", info.meaning},
              {"topic", info.topic()},
              {"type", info.form.type},
              {"form", info.form.description}};
  if (!info.form.enumeration.empty()) {
    object["enumeration"] = info.form.enumeration;
  }
  if (!info.form.pattern.empty()) {
    object["pattern"] = info.form.pattern;
  }
  object["example"] = info.example;
  object["source"] = info.sources();
  object["signal"] = info.signal;
  object["published_when"] = info.published_when;
  return object;
}

}  // namespace ecu::tools
