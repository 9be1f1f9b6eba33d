#include "common/version.h"

namespace ecu::tools {

const char* release_version() noexcept {
  return TOLQUIL_VERSION;
}

}  // namespace ecu::tools
