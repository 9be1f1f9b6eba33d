#pragma once

#include <algorithm>
#include <cstddef>

namespace ecu::quil {

/// A text that may stand among a template's arguments.
template <std::size_t Size>
struct FixedString {
  // NOLINTNEXTLINE(google-explicit-constructor): made from a literal in the argument list of a template
  constexpr FixedString(const char (&text)[Size]) { std::copy_n(text, Size, chars); }

  char chars[Size] = {};
};

/// A variable of class `Base` that is constructed with `Texts`: the class of one published value where
/// several differ by their names only.
template <class Base, FixedString... Texts>
class NamedVariable final : public Base {
 public:
  NamedVariable() : Base(Texts.chars...) {}
};

}  // namespace ecu::quil
