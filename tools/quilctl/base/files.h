#pragma once

#include <cstddef>
#include <istream>
#include <string>

namespace ecu::ctl {

/// Of a system parameter or of the secure storage: what a record of a port can hold.
inline constexpr std::size_t max_value_size = 65'504;

/// Throws `Failure` when a value of `size` bytes is none that can be stored.
void require_value_size(std::size_t size);

/// A value: all bytes of a file, or of a stream called `name`. Throws `Failure` when they cannot be read or
/// are too many.
[[nodiscard]] std::string read_file(const std::string& path);
[[nodiscard]] std::string read_to_end(std::istream& input, const std::string& name);

/// As `std::getline`, but gives a line of more than `max_size` bytes up behind the first byte that is too
/// many.
bool read_line(std::istream& input, std::string& line, std::size_t max_size);

}  // namespace ecu::ctl
