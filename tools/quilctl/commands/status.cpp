#include <iostream>
#include <optional>
#include <string>

#include <ecu/tamu/com/topics.h>

#include "quilctl/base/escaping.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/values.h"
#include "quilctl/model/variable_catalogue.h"
#include "quilctl/model/variable_view.h"
#include "quilctl/talk/parameter_client.h"
#include "quilctl/talk/request_session.h"
#include "quilctl/talk/service_status.h"

namespace ecu::ctl {

namespace topics = tamu::com::topics;

namespace {

constexpr const char* vin_name = "vehicleid";

// A reply takes long only while a frame of parameters is arriving.
constexpr std::chrono::seconds parameter_timeout{2};

struct Status {
  std::string broker;
  std::optional<bool> daemon_on_line;  // none: it has published no presence
  std::size_t with_value = 0;
  std::optional<std::string> vin;
  std::optional<std::size_t> parameters;  // none: no reply
  std::optional<std::string> service;     // none: not a service of this machine
};

Status read_variables(const Options& options) {
  VariableView view;
  RequestSession session(options, {topics::all_variables_filter, topics::daemon_presence},
                         [&view](const Event& event) { (void)view.take(event.text, event.message); });
  Status status;
  status.broker = session.bus().broker();
  status.daemon_on_line = view.daemon_on_line();
  status.with_value = view.with_value();
  if (const Variable* const vin = view.find(vin_name)) {
    status.vin = vin->value;
  }
  return status;
}

std::optional<std::size_t> count_parameters(const Options& options) {
  ParameterClient client(options, parameter_timeout);
  const auto parameters = client.try_read();
  return parameters ? std::optional(parameters->size()) : std::nullopt;
}

const char* shown(const std::optional<bool>& daemon_on_line) {
  return !daemon_on_line ? "unknown: no presence published" : *daemon_on_line ? "on line" : "off line";
}

void print(const Status& status) {
  std::cout << "broker      " << status.broker << ", reachable\n"
            << "daemon      " << shown(status.daemon_on_line) << '\n';
  if (status.service) {
    std::cout << "service     " << printable(*status.service) << '\n';
  }
  std::cout << "variables   " << status.with_value << " of " << variables().size() << " have a value\n"
            << "VIN         " << (status.vin ? printable(*status.vin) : "not known") << '\n'
            << "parameters  "
            << (status.parameters ? std::to_string(*status.parameters) + " cached" : "no reply") << '\n';
}

Json json_of(const Status& status) {
  Json object{{"broker", status.broker}, {"reachable", true}};
  object["daemon_on_line"] = status.daemon_on_line ? Json(*status.daemon_on_line) : Json(nullptr);
  object["service"] = json_value(status.service);
  object["variables_with_value"] = status.with_value;
  object["variables_known"] = variables().size();
  object["vin"] = json_value(status.vin);
  object["parameters_cached"] = status.parameters ? Json(*status.parameters) : Json(nullptr);
  return object;
}

Status read_status(const Options& options) {
  Status status = read_variables(options);
  if (status.daemon_on_line != false) {
    status.parameters = count_parameters(options);
  }
  if (status.parameters) {
    status.daemon_on_line = true;
  }
  status.service = service_status(status.broker);
  return status;
}

ExitCode show(const Options& options, const Status& status) {
  if (options.json) {
    print_json(json_of(status));
  } else {
    print(status);
  }
  return status.daemon_on_line == true ? ExitCode::done : ExitCode::daemon_off_line;
}

}  // namespace

ExitCode status(const Options& options) {
  try {
    return show(options, read_status(options));
  } catch (const BrokerFailure& failure) {
    if (options.json) {
      print_json({{"broker", failure.broker()}, {"reachable", false}});
    }
    throw;
  }
}

}  // namespace ecu::ctl
