#pragma once

#include <string>

namespace ecu::tamu::com {

/// Whether `topic` is one of those that `filter` stands for (MQTT 3.1.1, 4.7); false for a filter that is
/// none.
[[nodiscard]] bool topic_matches(const std::string& filter, const std::string& topic);

/// Whether it can be subscribed to, and whether it can be published on (MQTT 3.1.1, 4.7).
[[nodiscard]] bool is_topic_filter(const std::string& text);
[[nodiscard]] bool is_topic_name(const std::string& text);

}  // namespace ecu::tamu::com
