#include <mosquittopp.h>

#include <ecu/tamu/com/topic.h>

namespace ecu::tamu::com {

bool topic_matches(const std::string& filter, const std::string& topic) {
  if (filter.find_first_of("+#") == std::string::npos) {
    return filter == topic;
  }
  bool result = false;
  return mosqpp::topic_matches_sub(filter.c_str(), topic.c_str(), &result) == MOSQ_ERR_SUCCESS && result;
}

}  // namespace ecu::tamu::com
