#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <ecu/tamu/logging/logging.h>

#include "posix/unique_fd.h"

namespace tests {

/// Tests must not write to the system log of the machine.
inline const bool system_log_is_spared =
    (ecu::tamu::logging::set_log_mode(ecu::tamu::logging::LogMode::none), true);

/// The log of `call` on standard output, which is a file in memory meanwhile. Nothing is logged before or
/// after.
template <class Call>
std::string logged_by(Call call) {
  using namespace ecu::tamu;
  const posix::UniqueFd file(::memfd_create("log", MFD_CLOEXEC)), original(::dup(STDOUT_FILENO));
  ::dup2(file.get(), STDOUT_FILENO);
  logging::set_log_mode(logging::LogMode::standard_output);
  call();
  logging::set_log_mode(logging::LogMode::none);
  ::dup2(original.get(), STDOUT_FILENO);
  std::string text(static_cast<std::size_t>(::lseek(file.get(), 0, SEEK_END)), '\0');
  (void)!::pread(file.get(), text.data(), text.size(), 0);
  return text;
}

/// The log of `call` at every level, one element per line, without times.
template <class Call>
std::vector<std::string> logged_lines(Call call) {
  ecu::tamu::logging::configure_logging("DEBUG");
  std::istringstream log(logged_by(call));
  ecu::tamu::logging::configure_logging("");
  std::vector<std::string> lines;
  for (std::string line; std::getline(log, line);) {
    lines.push_back(line.substr(std::min(line.size(), std::string_view("2026-11-21T10:00:00.123Z ").size())));
  }
  return lines;
}

}  // namespace tests
