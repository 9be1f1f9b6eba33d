#include "diag/bus_pgn_request_client.h"

#include <utility>

#include "signals/signal_catalogue.h"

namespace ecu::tamu::diag {

namespace {

using Clock = BusPgnRequestClient::Clock;

Clock::time_point later(Clock::time_point now, std::uint64_t seconds) {
  const auto remaining = std::chrono::duration_cast<std::chrono::seconds>(Clock::time_point::max() - now);
  return seconds < static_cast<std::uint64_t>(remaining.count()) ? now + std::chrono::seconds(seconds)
                                                                 : Clock::time_point::max();
}

}  // namespace

BusPgnRequestClient::BusPgnRequestClient(std::shared_ptr<com::ITransportClient> client,
                                         std::function<Clock::time_point()> now)
    : client_(std::move(client)), now_(std::move(now)) {}

Result<PgnRequestToken, Error> BusPgnRequestClient::request_token(const std::string& topic,
                                                                  std::uint64_t seconds) {
  if (!client_->connected()) {
    return Error::not_connected;
  }
  if (rt::find_topic(topic) == nullptr) {
    return Error::unknown_topic;
  }
  const MutexLock lock(mutex_);
  const Clock::time_point now = now_();
  const auto [last_grant, is_first] = last_grants_.try_emplace(topic, now);
  if (!is_first && now - last_grant->second < response_time) {
    return Error::too_early;
  }
  last_grant->second = now;
  return PgnRequestToken{later(now, seconds)};
}

std::string BusPgnRequestClient::error_str(const Error& error) const {
  switch (error) {
    case Error::not_connected:
      return "the bus is not connected";
    case Error::unknown_topic:
      return "the topic is unknown to the platform";
    case Error::too_early:
      return "the last request on the topic may still be answered";
  }
  return "unknown error";
}

std::shared_ptr<PgnRequestClient> create_pgn_request_client(
    const std::shared_ptr<com::ITransportClient>& client) {
  return std::make_shared<BusPgnRequestClient>(client);
}

}  // namespace ecu::tamu::diag
