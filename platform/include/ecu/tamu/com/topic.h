#pragma once

#include <string>

namespace ecu::tamu::com {

/// Whether `topic` is one of those that `filter` stands for (MQTT 3.1.1, 4.7); false for a filter that is
/// none.
[[nodiscard]] bool topic_matches(const std::string& filter, const std::string& topic);

}  // namespace ecu::tamu::com
