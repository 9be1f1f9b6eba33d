#pragma once

#include <string>

namespace ecu::tamu::com {

/// Whether `topic` matches `filter` (MQTT 3.1.1, 4.7); false for an invalid filter.
[[nodiscard]] bool topic_matches(const std::string& filter, const std::string& topic);

/// Whether `text` is a valid topic filter to subscribe to, or a valid topic to publish on (MQTT 3.1.1, 4.7).
[[nodiscard]] bool is_topic_filter(const std::string& text);
[[nodiscard]] bool is_topic_name(const std::string& text);

}  // namespace ecu::tamu::com
