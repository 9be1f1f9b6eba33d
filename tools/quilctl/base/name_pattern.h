#pragma once

#include <fnmatch.h>

#include <string>
#include <string_view>

namespace ecu::ctl {

/// Whether `name` matches `pattern`, in which `*` stands for any characters and `?` for any one character.
[[nodiscard]] inline bool matches_pattern(std::string_view name, const std::string& pattern) {
  return ::fnmatch(pattern.c_str(), std::string(name).c_str(), 0) == 0;
}

}  // namespace ecu::ctl
