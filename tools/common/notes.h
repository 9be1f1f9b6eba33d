#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ecu::tools {

/// Prints a diagnostic line on standard error, after the program's name; `text` is escaped. Prints nothing
/// for an empty text.
void note(std::string_view text);

/// A count with its noun, whose plural ends in "s": "1 message", "2 messages".
[[nodiscard]] std::string counted(std::uint64_t count, std::string_view noun);

}  // namespace ecu::tools
