#pragma once

#include <cstdint>
#include <string>

#include <ecu/tamu/com/connection_observer.h>

namespace ecu::tools {

/// Why there is no connection to `broker`, for the user, who learns which option to check. The arguments are
/// those of `IConnectionObserver::connection_down`.
[[nodiscard]] std::string connection_text(const std::string& broker, tamu::com::ConnectionFailure failure,
                                          const std::string& reason);

/// For `IConnectionObserver::subscription_refused`.
[[nodiscard]] std::string refusal_text(const std::string& filter);

/// For `IConnectionObserver::messages_dropped`.
[[nodiscard]] std::string loss_text(std::uint64_t count);

}  // namespace ecu::tools
