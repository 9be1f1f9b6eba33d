#include "uplink/fleet_message.h"

#include <nlohmann/json.hpp>

#include "common/times.h"

namespace ecu::uplink {

std::string variable_message(const ChangeFilter::Value& value, std::optional<WallTime> since,
                             const std::optional<std::string>& daemon_presence) {
  using Json = nlohmann::ordered_json;
  const Json message{{"value", value.text},
                     {"since", since ? Json(tools::iso_time(*since)) : Json()},
                     {"stamp", value.since.count()},
                     {"daemon", daemon_presence ? Json(*daemon_presence) : Json()}};
  return message.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace ecu::uplink
