#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/escaping.h"
#include "common/times.h"
#include "quilctl/commands/commands.h"
#include "quilctl/fleet/fleet_commands.h"
#include "quilctl/model/variable_rows.h"
#include "quilctl/talk/client_configuration.h"
#include "quilctl/talk/parameter_client.h"
#include "quilctl/talk/variable_session.h"

namespace ecu::ctl {

namespace {

constexpr const char* vin_name = "vehicleid";

// A reply takes long only while a frame of parameters is arriving.
constexpr std::chrono::seconds parameter_timeout{2};

// Published at each start of the daemon, and never again.
constexpr const char* start_name = "versionuboot";

constexpr const char* service_command =
    "SYSTEMD_BUS_TIMEOUT=2 exec systemctl show --property=StatusText --value tolquil.service 2>/dev/null";

struct Status {
  std::string broker, origin;          // its address and where that comes from
  std::optional<bool> daemon_on_line;  // none: it has published no presence
  std::optional<std::chrono::nanoseconds> running;
  std::size_t with_value = 0;
  std::vector<std::string> without_value;
  std::optional<std::string> vin;
  std::optional<std::size_t> parameters;  // none: no reply
  std::optional<std::string> service;     // none: not a service of this machine
};

Status read_variables(const Options& options) {
  VariableSession session(options);
  session.determine_clock();
  const VariableView& view = session.view();
  Status status;
  status.daemon_on_line = view.daemon_on_line();
  status.with_value = view.with_value();
  for (const VariableRow& row : variable_rows(view)) {
    if (!row.value()) {
      status.without_value.push_back(row.name);
    } else if (row.name == vin_name) {
      status.vin = row.value();
    } else if (row.name == start_name) {
      status.running = row.age(session.clock());
    }
  }
  return status;
}

// A tunnel to another machine that begins on this one is not recognised.
bool may_run_here(const std::string& broker) {
  constexpr std::array beginnings{"/", "localhost:", "127.", "[::1]:"};
  return std::ranges::any_of(beginnings,
                             [&](const char* beginning) { return broker.starts_with(beginning); });
}

// What the daemon reports to this machine's service manager, for instance "on line; receive port away since
// 14:02"; nothing when it is not a running service. Takes at most a few seconds.
std::optional<std::string> service_status() {
  // NOLINTNEXTLINE(cert-env33-c): the command is constant, and the user's own environment may choose programs
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(::popen(service_command, "r"), ::pclose);
  std::array<char, 256> line{};
  if (!output || std::fgets(line.data(), line.size(), output.get()) == nullptr) {
    return std::nullopt;
  }
  std::string text = line.data();
  text.resize(std::min(text.size(), text.find('\n')));
  return text.empty() ? std::nullopt : std::optional(text);
}

const char* shown(const std::optional<bool>& daemon_on_line) {
  return !daemon_on_line ? "unknown: no presence published" : *daemon_on_line ? "on line" : "off line";
}

const char* state_of_ports(const std::optional<std::size_t>& parameters) {
  return !parameters        ? "not known: the daemon does not reply while it waits for the other side"
         : *parameters == 0 ? "nothing received from the other side yet"
                            : "parameters received from the other side";
}

void print(const Status& status) {
  std::cout << "broker      " << status.broker << ", reachable (address from " << status.origin << ")\n"
            << "daemon      " << shown(status.daemon_on_line)
            << (status.running ? ", started " + tools::age_text(*status.running) + " ago" : "") << '\n'
            << (status.service ? "service     " + tools::printable(*status.service) + '\n' : "")
            << "ports       " << state_of_ports(status.parameters) << '\n'
            << "variables   " << status.with_value << " of " << tools::variables().size()
            << " have a value\n";
  for (const std::string& name : status.without_value) {
    std::cout << (&name == &status.without_value.front() ? "no value    " : " ") << tools::printable(name);
  }
  std::cout << (status.without_value.empty() ? "" : "\n") << "VIN         "
            << (status.vin ? tools::printable(*status.vin) : "not known") << '\n'
            << "parameters  "
            << (status.parameters ? std::to_string(*status.parameters) + " cached" : "no reply") << '\n';
}

Json json_of(const Status& status) {
  Json object{{"broker", status.broker}, {"address_from", status.origin}, {"reachable", true}};
  object["daemon_on_line"] = status.daemon_on_line ? Json(*status.daemon_on_line) : Json(nullptr);
  object["service"] = json_value(status.service);
  object["running_s"] =
      status.running ? Json(std::chrono::duration<double>(*status.running).count()) : Json(nullptr);
  object["variables_with_value"] = status.with_value;
  object["variables_known"] = tools::variables().size();
  object["without_value"] = status.without_value;
  object["vin"] = json_value(status.vin);
  object["parameters_cached"] = status.parameters ? Json(*status.parameters) : Json(nullptr);
  return object;
}

Status read_status(const Options& options) {
  Status status = read_variables(options);
  if (status.daemon_on_line != false) {
    if (const auto parameters = ParameterClient(options, parameter_timeout).try_read()) {
      status.parameters = parameters->size();
      status.daemon_on_line = true;
    }
  }
  if (status.daemon_on_line != true) {
    status.running.reset();
  }
  return status;
}

}  // namespace

ExitCode status(const Options& options) {
  const auto config = client_configuration(options.broker);
  const std::string broker = tools::broker_address(*config);
  try {
    if (options.fleet) {
      return fleet::status(options);
    }
    Status status = read_status(options);
    status.broker = broker;
    status.origin = address_origin(options.broker, *config);
    status.service = may_run_here(broker) ? service_status() : std::nullopt;
    if (options.json) {
      print_json(json_of(status));
    } else {
      print(status);
    }
    return status.daemon_on_line == true ? ExitCode::done : ExitCode::daemon_off_line;
  } catch (const Failure& failure) {
    if (options.json && failure.code() == ExitCode::broker_unreachable) {
      print_json({{"broker", broker}, {"reachable", false}, {"reason", json_value(failure.what())}});
    }
    throw;
  }
}

}  // namespace ecu::ctl
