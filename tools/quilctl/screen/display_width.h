#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ecu::ctl {

/// The number of terminal columns that a UTF-8 text takes.
[[nodiscard]] std::size_t display_width(std::string_view text);

/// The text when it fits into `width` columns, else the beginning that fits together with an ellipsis.
[[nodiscard]] std::string cut_to_width(std::string_view text, std::size_t width);

}  // namespace ecu::ctl
