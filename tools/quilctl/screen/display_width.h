#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ecu::ctl {

/// Takes the character encoding of the terminal from the environment. Call it before any thread is started;
/// until then, text is for UTF-8 terminals.
void use_terminal_encoding();

/// The number of terminal columns that a UTF-8 text takes.
[[nodiscard]] std::size_t display_width(std::string_view text);

/// The text when it fits into `width` columns, else the beginning that fits together with an ellipsis.
[[nodiscard]] std::string cut_to_width(std::string_view text, std::size_t width);

/// A text that the terminal can show, of the same width: in another encoding than UTF-8 "?" stands for all
/// that is not ASCII.
[[nodiscard]] std::string for_terminal(std::string text);

}  // namespace ecu::ctl
