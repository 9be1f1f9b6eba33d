#include <mosquitto.h>
#include <mosquittopp.h>

#include <ecu/tamu/com/topic.h>

namespace ecu::tamu::com {

namespace {

// MQTT's UTF-8: no NUL, no control characters, no surrogates.
bool is_utf8(const std::string& text) {
  return mosquitto_validate_utf8(text.data(), static_cast<int>(text.size())) == MOSQ_ERR_SUCCESS;
}

}  // namespace

bool topic_matches(const std::string& filter, const std::string& topic) {
  if (filter.find_first_of("+#") == std::string::npos) {
    return filter == topic;
  }
  bool result = false;
  return mosqpp::topic_matches_sub(filter.c_str(), topic.c_str(), &result) == MOSQ_ERR_SUCCESS && result;
}

bool is_topic_filter(const std::string& text) {
  return !text.empty() && mosquitto_sub_topic_check2(text.data(), text.size()) == MOSQ_ERR_SUCCESS &&
         is_utf8(text);
}

bool is_topic_name(const std::string& text) {
  return !text.empty() && mosquitto_pub_topic_check2(text.data(), text.size()) == MOSQ_ERR_SUCCESS &&
         is_utf8(text);
}

}  // namespace ecu::tamu::com
