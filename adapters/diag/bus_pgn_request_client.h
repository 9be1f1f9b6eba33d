#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/diag/pgn_request_client.h>

namespace ecu::tamu::diag {

/// How long a responder may take for its answer, and so the least time between two requests on a topic
/// (SAE J1939-21).
inline constexpr std::chrono::milliseconds response_time{1250};

/// Keeps the requests that this process sends over its bus client at the distance that the standard asks for.
class BusPgnRequestClient final : public PgnRequestClient {
 public:
  using Clock = std::chrono::steady_clock;

  /// `now` is asked for the time of each grant.
  explicit BusPgnRequestClient(std::shared_ptr<com::ITransportClient> client,
                               std::function<Clock::time_point()> now = Clock::now);

  [[nodiscard]] Result<PgnRequestToken, Error> request_token(const std::string& topic,
                                                             std::uint64_t seconds) override;
  [[nodiscard]] std::string error_str(const Error& error) const override;

 private:
  const std::shared_ptr<com::ITransportClient> client_;
  const std::function<Clock::time_point()> now_;

  std::mutex mutex_;
  std::map<std::string, Clock::time_point> last_grants_;  // by topic; guarded by mutex_
};

}  // namespace ecu::tamu::diag
