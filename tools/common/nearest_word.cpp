#include "common/nearest_word.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace ecu::tools {

std::size_t edit_distance(std::string_view word, std::string_view other) {
  std::vector<std::size_t> counts(other.size() + 1);  // for each prefix of `other`
  std::iota(counts.begin(), counts.end(), std::size_t{0});
  for (const char letter : word) {
    std::size_t before = counts[0]++;
    for (std::size_t i = 1; i < counts.size(); ++i) {
      const std::size_t replaced = before + (letter == other[i - 1] ? 0 : 1);
      before = counts[i];
      counts[i] = std::min({counts[i] + 1, counts[i - 1] + 1, replaced});
    }
  }
  return counts.back();
}

}  // namespace ecu::tools
