#pragma once

#include <cstddef>
#include <istream>
#include <stdexcept>
#include <string>

namespace ecu::tools {

/// An input that cannot be read or is too large; `what()` names it and gives the reason in one line.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// All bytes of a file, or of a stream that error texts call `name`. Throws `InputError` when it cannot be
/// read or has more than `max_size` bytes; reads little more than these.
[[nodiscard]] std::string read_file(const std::string& path, std::size_t max_size);
[[nodiscard]] std::string read_stream(std::istream& input, const std::string& name, std::size_t max_size);

/// The reason in `errno`, for the input called `name`.
[[nodiscard]] InputError input_error(const std::string& name);

}  // namespace ecu::tools
