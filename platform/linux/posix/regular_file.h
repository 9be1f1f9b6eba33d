#pragma once

#include <string>

namespace ecu::tamu::posix {

/// Why `path` is not a regular file that can be read; empty when it is one. Does not wait, as opening a FIFO
/// would.
[[nodiscard]] std::string why_unreadable(const std::string& path);

}  // namespace ecu::tamu::posix
