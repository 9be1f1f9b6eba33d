#include "quilctl/talk/service_status.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <utility>

namespace ecu::ctl {

namespace {

constexpr const char* command =
    "SYSTEMD_BUS_TIMEOUT=2 exec systemctl show --property=StatusText --value tolquil.service 2>/dev/null";

bool is_on_this_machine(const std::string& broker) {
  constexpr std::array beginnings{"/", "localhost:", "127.", "[::1]:"};
  return std::ranges::any_of(beginnings,
                             [&](const char* beginning) { return broker.starts_with(beginning); });
}

std::string first_line_of_output() {
  // NOLINTNEXTLINE(cert-env33-c): the command is constant, and the user's own environment may choose programs
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(::popen(command, "r"), ::pclose);
  std::array<char, 256> line{};
  if (!output || std::fgets(line.data(), line.size(), output.get()) == nullptr) {
    return {};
  }
  const std::string text = line.data();
  return text.substr(0, text.find('\n'));
}

}  // namespace

std::optional<std::string> service_status(const std::string& broker) {
  std::string text = is_on_this_machine(broker) ? first_line_of_output() : std::string();
  return text.empty() ? std::nullopt : std::optional(std::move(text));
}

}  // namespace ecu::ctl
