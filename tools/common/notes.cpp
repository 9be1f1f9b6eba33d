#include "common/notes.h"

#include <cerrno>
#include <iostream>

#include "common/escaping.h"

namespace ecu::tools {

void note(std::string_view text) {
  if (!text.empty()) {
    std::cerr << program_invocation_short_name << ": " << printable(text) << std::endl;
  }
}

std::string counted(std::uint64_t count, std::string_view noun) {
  return std::to_string(count) + ' ' + std::string(noun) + (count == 1 ? "" : "s");
}

}  // namespace ecu::tools
