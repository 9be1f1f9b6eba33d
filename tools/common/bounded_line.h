#pragma once

#include <cstddef>
#include <istream>
#include <string>

namespace ecu::tools {

/// Like `std::getline`, but stops in a line of more than `max_size` bytes after the first byte that is too
/// many.
inline bool read_line(std::istream& input, std::string& line, std::size_t max_size) {
  line.clear();
  char next = 0;
  while (line.size() <= max_size && input.get(next) && next != '\n') {
    line += next;
  }
  return !line.empty() || input.good();
}

}  // namespace ecu::tools
