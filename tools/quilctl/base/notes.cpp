#include "quilctl/base/notes.h"

#include <iostream>

#include "quilctl/base/escaping.h"

namespace ecu::ctl {

void note(std::string_view text) {
  std::cerr << "quilctl: " << printable(text) << std::endl;
}

}  // namespace ecu::ctl
