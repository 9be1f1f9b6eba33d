#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace ecu::tamu::text {

/// The decimal number in `digits`. Returns std::nullopt if there is any other character (a sign or a space
/// included), no digit at all, or if the number does not fit.
[[nodiscard]] inline std::optional<std::uint64_t> parse_number(std::string_view digits) noexcept {
  std::uint64_t number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [parsed_to, error] = std::from_chars(digits.data(), end, number);
  if (error != std::errc{} || parsed_to != end) {
    return std::nullopt;
  }
  return number;
}

}  // namespace ecu::tamu::text
