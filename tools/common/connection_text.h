#pragma once

#include <string>

#include <ecu/tamu/com/connection_observer.h>

namespace ecu::tools {

/// Why there is no connection to `broker`, for the user, who learns which option to check. The arguments are
/// those of `IConnectionObserver::connection_down`.
[[nodiscard]] std::string connection_text(const std::string& broker, tamu::com::ConnectionFailure failure,
                                          const std::string& reason);

}  // namespace ecu::tools
