#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/diag/pgn_request_client.h>
#include <ecu/tamu/thread_safety.h>

namespace ecu::tamu::diag {

/// The longest time that a responder may take to answer, and therefore the shortest time between two requests
/// on a topic (SAE J1939-21).
inline constexpr std::chrono::milliseconds response_time{1250};

/// Spaces the requests that this process sends over its bus client as the standard requires.
class BusPgnRequestClient final : public PgnRequestClient {
 public:
  using Clock = std::chrono::steady_clock;

  /// `now` returns the time.
  explicit BusPgnRequestClient(std::shared_ptr<com::ITransportClient> client,
                               std::function<Clock::time_point()> now = Clock::now);

  [[nodiscard]] Result<PgnRequestToken, Error> request_token(const std::string& topic,
                                                             std::uint64_t seconds) override;
  [[nodiscard]] std::string error_str(const Error& error) const override;

 private:
  // Constant after construction.
  const std::shared_ptr<com::ITransportClient> client_;
  const std::function<Clock::time_point()> now_;

  Mutex mutex_;

  // Guarded by mutex_.
  std::map<std::string, Clock::time_point> last_grants_ TAMU_GUARDED_BY(mutex_);  // by topic
};

}  // namespace ecu::tamu::diag
