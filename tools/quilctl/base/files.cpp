#include "quilctl/base/files.h"

#include <array>
#include <cerrno>
#include <fstream>
#include <system_error>

#include "quilctl/base/failure.h"

namespace ecu::ctl {

namespace {

[[noreturn]] void fail(const std::string& name) {
  throw Failure(ExitCode::usage, name + ": " + std::generic_category().message(errno));
}

}  // namespace

void require_value_size(std::size_t size) {
  if (size > max_value_size) {
    throw Failure(ExitCode::usage, "a value has at most " + std::to_string(max_value_size) + " bytes");
  }
}

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
    require_value_size(bytes.size());
  }
  if (input.bad()) {
    fail(name);
  }
  return bytes;
}

bool read_line(std::istream& input, std::string& line, std::size_t max_size) {
  line.clear();
  char next = 0;
  while (line.size() <= max_size && input.get(next) && next != '\n') {
    line += next;
  }
  return !line.empty() || input.good();
}

}  // namespace ecu::ctl
