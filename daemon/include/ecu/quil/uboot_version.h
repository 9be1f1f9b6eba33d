#pragma once

#include <string>
#include <string_view>

namespace ecu::quil {

/// The version in the text that U-Boot leaves behind ("U-Boot 2015.07-r12-gabcdef"): what stands between the
/// first dash behind the name and the next dash, or the text's end. "Unknown" for a text of something else.
[[nodiscard]] std::string uboot_version(std::string_view text);

/// The version that U-Boot left 9 MiB into the memory behind `device`, in a page that may hold no zero byte.
/// "Unknown" when it left none, and, after one line in the log, when the memory cannot be read. The device
/// stays open, and the page mapped, for the life of the process.
[[nodiscard]] std::string read_uboot_version(const char* device);

}  // namespace ecu::quil
