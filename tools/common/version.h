#pragma once

namespace ecu::tools {

/// The release number of this build.
[[nodiscard]] const char* release_version() noexcept;

}  // namespace ecu::tools
