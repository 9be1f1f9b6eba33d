#include "common/input_file.h"

#include <array>
#include <cerrno>
#include <fstream>
#include <system_error>

namespace ecu::tools {

InputError input_error(const std::string& name) {
  return InputError{name + ": " + std::generic_category().message(errno)};
}

std::string read_file(const std::string& path, std::size_t max_size) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw input_error(path);
  }
  return read_stream(file, path, max_size);
}

std::string read_stream(std::istream& input, const std::string& name, std::size_t max_size) {
  std::string bytes;
  std::array<char, 4096> block{};
  while (input.read(block.data(), block.size()), input.gcount() > 0) {
    bytes.append(block.data(), static_cast<std::size_t>(input.gcount()));
    if (bytes.size() > max_size) {
      throw InputError(name + ": more than " + std::to_string(max_size) + " bytes");
    }
  }
  if (input.bad()) {
    throw input_error(name);
  }
  return bytes;
}

}  // namespace ecu::tools
