#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <optional>
#include <string_view>

namespace ecu::tamu::text {

/// The number in `digits`, of this base. Returns std::nullopt if there is any other character (a sign or a
/// space included), no digit at all, or if the number does not fit.
template <std::unsigned_integral Number = std::uint64_t>
[[nodiscard]] std::optional<Number> parse_number(std::string_view digits, int base = 10) noexcept {
  Number number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [parsed_to, error] = std::from_chars(digits.data(), end, number, base);
  return error == std::errc() && parsed_to == end ? std::optional(number) : std::nullopt;
}

}  // namespace ecu::tamu::text
