#pragma once

#include <unistd.h>

#include <algorithm>
#include <array>
#include <future>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <ecu/tamu/logging/logging.h>

#include "posix/unique_fd.h"

namespace tests {

/// What `call` logs to standard output, which is a pipe meanwhile. The log mode is syslog afterwards.
template <class Call>
std::string logged_by(Call call) {
  using namespace ecu::tamu;
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) {
    return "no pipe";
  }
  const posix::UniqueFd reader(ends[0]), original(::dup(STDOUT_FILENO));
  ::dup2(posix::UniqueFd(ends[1]).get(), STDOUT_FILENO);
  auto output = std::async(std::launch::async, [&reader] {
    std::string text;
    for (char byte = 0; ::read(reader.get(), &byte, 1) == 1;) {
      text += byte;
    }
    return text;
  });
  logging::set_log_mode(logging::LogMode::standard_output);
  call();
  logging::set_log_mode(logging::LogMode::syslog);
  ::dup2(original.get(), STDOUT_FILENO);
  return output.get();
}

/// What `call` logs at any level: a line each, without its time.
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
