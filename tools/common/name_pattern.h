#pragma once

#include <fnmatch.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace ecu::tools {

/// Whether `name` matches `pattern`, in which `*` stands for any characters and `?` for any one character.
[[nodiscard]] inline bool matches_pattern(std::string_view name, const std::string& pattern) {
  return ::fnmatch(pattern.c_str(), std::string(name).c_str(), 0) == 0;
}

/// Whether `name` matches one of the patterns, or there are none.
[[nodiscard]] inline bool matches_any(std::string_view name, const std::vector<std::string>& patterns) {
  return patterns.empty() || std::ranges::any_of(patterns, [name](const std::string& pattern) {
           return matches_pattern(name, pattern);
         });
}

/// Whether the text may match more than one name.
[[nodiscard]] inline bool is_pattern(std::string_view text) {
  return text.find_first_of("*?[") != std::string_view::npos;
}

}  // namespace ecu::tools
