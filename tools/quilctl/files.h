#pragma once

#include <istream>
#include <string>

namespace ecu::ctl {

/// All bytes of a file, or of a stream called `name`. Throws `Failure` when they cannot be read.
[[nodiscard]] std::string read_file(const std::string& path);
[[nodiscard]] std::string read_to_end(std::istream& input, const std::string& name);

}  // namespace ecu::ctl
