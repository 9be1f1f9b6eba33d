#pragma once

#include <memory>
#include <mutex>
#include <system_error>

namespace ecu::quil {

/// Locks a mutex that several objects share. Throws std::system_error (operation not permitted) when there is
/// none.
[[nodiscard]] inline std::unique_lock<std::mutex> locked(const std::shared_ptr<std::mutex>& mutex) {
  if (!mutex) {
    throw std::system_error(std::make_error_code(std::errc::operation_not_permitted));
  }
  return std::unique_lock(*mutex);
}

}  // namespace ecu::quil
