#pragma once

#include <cstdint>
#include <span>
#include <string>

/// Conversions from raw bytes to the text of a value.
namespace ecu::quil {

/// Whether `bytes` is empty or holds only 0xff or only 0x00.
[[nodiscard]] bool is_unset(std::span<const std::uint8_t> bytes);

/// The characters before the first zero byte; all when there is none.
[[nodiscard]] std::string text_until_zero(std::span<const std::uint8_t> bytes);

/// `text` with every ASCII letter in lower case.
[[nodiscard]] std::string lower_case(std::string text);

}  // namespace ecu::quil
