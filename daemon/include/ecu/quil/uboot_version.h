#pragma once

#include <string>
#include <string_view>

namespace ecu::quil {

/// The version in the text that U-Boot leaves in memory ("U-Boot 2015.07-r12-gabcdef"): the characters
/// between the first dash after the name and the next dash, or the end of the text. "Unknown" for any other
/// text.
[[nodiscard]] std::string uboot_version(std::string_view text);

/// The version that U-Boot left at 9 MiB in the memory behind `device`; the page there may lack a zero byte.
/// "Unknown" when it left none, or, after one line in the log, when the memory cannot be read. The device
/// stays open and the page mapped for the life of the process.
[[nodiscard]] std::string read_uboot_version(const char* device);

}  // namespace ecu::quil
