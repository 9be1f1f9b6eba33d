#pragma once

#include <string>
#include <string_view>

namespace ecu::quil {

/// The version in the text that U-Boot leaves in memory ("U-Boot 2015.07-r12-gabcdef"): the characters
/// between the first dash after the name and the next dash, or the end of the text. "Unknown" for any other
/// text.
[[nodiscard]] std::string uboot_version(std::string_view text);

/// The version that U-Boot stored at 9 MiB in the memory that `device` maps; the page need not contain a zero
/// byte. "Unknown" if it stored none. If the memory cannot be read, logs one line and returns "Unknown". The
/// device stays open and the page mapped for the life of the process.
[[nodiscard]] std::string read_uboot_version(const char* device);

}  // namespace ecu::quil
