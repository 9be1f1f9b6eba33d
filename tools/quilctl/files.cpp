#include "files.h"

#include <array>
#include <cerrno>
#include <fstream>
#include <system_error>

#include "failure.h"

namespace ecu::ctl {

namespace {

[[noreturn]] void fail(const std::string& name) {
  throw Failure(ExitCode::usage, name + ": " + std::generic_category().message(errno));
}

}  // namespace

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    fail(path);
  }
  return read_to_end(file, path);
}

std::string read_to_end(std::istream& input, const std::string& name) {
  std::string bytes;
  std::array<char, 4096> block{};
  while (input.read(block.data(), block.size()), input.gcount() > 0) {
    bytes.append(block.data(), static_cast<std::size_t>(input.gcount()));
  }
  if (input.bad()) {
    fail(name);
  }
  return bytes;
}

}  // namespace ecu::ctl
