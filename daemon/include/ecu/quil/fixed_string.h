#pragma once

#include <algorithm>
#include <cstddef>

namespace ecu::quil {

/// A text that can be an argument of a template.
template <std::size_t Size>
struct FixedString {
  // NOLINTNEXTLINE(google-explicit-constructor): made from a literal in the argument list of a template
  constexpr FixedString(const char (&text)[Size]) { std::copy_n(text, Size, chars); }

  char chars[Size] = {};
};

}  // namespace ecu::quil
