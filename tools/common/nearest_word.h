#pragma once

#include <ranges>
#include <string>
#include <string_view>

namespace ecu::tools {

/// The Levenshtein distance: how many letters to insert, delete or replace to get from one word to the other.
[[nodiscard]] std::size_t edit_distance(std::string_view word, std::string_view other);

/// What to append to the report of an unknown word: asks whether the nearest of `words` was meant; empty when
/// none is near.
template <std::ranges::input_range Words>
[[nodiscard]] std::string did_you_mean(std::string_view word, const Words& words) {
  // A word at a greater distance is not what the user meant.
  constexpr std::size_t max_edit_distance = 2;
  std::string nearest;
  std::size_t least = max_edit_distance + 1;
  for (const auto& candidate : words) {
    if (const std::size_t distance = edit_distance(word, candidate); distance < least) {
      nearest = candidate;
      least = distance;
    }
  }
  return nearest.empty() ? "" : "; did you mean '" + nearest + "'?";
}

}  // namespace ecu::tools
