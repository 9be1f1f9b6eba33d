#include "common/notes.h"

#include <cerrno>
#include <iostream>

#include "common/escaping.h"

namespace ecu::tools {

void note(std::string_view text) {
  std::cerr << program_invocation_short_name << ": " << printable(text) << std::endl;
}

}  // namespace ecu::tools
