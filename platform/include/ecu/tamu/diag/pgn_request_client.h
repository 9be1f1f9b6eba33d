#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/result.h>

namespace ecu::tamu::diag {

/// The right to send one request before it expires.
struct PgnRequestToken {
  std::chrono::steady_clock::time_point valid_until;
};

/// Why a token is refused.
enum class Error : int {
  /// The bus is not connected.
  not_connected = 1,
  /// The platform does not know the topic.
  unknown_topic = 2,
  /// The last token for the topic was granted less than the response time of SAE J1939-21 ago.
  too_early = 3,
};

/// Grants the right to request a parameter group from the vehicle network (SAE J1939-21, PGN 0xEA00), so that
/// several requesters do not flood it. Every operation may be called from any thread.
class PgnRequestClient {
 public:
  virtual ~PgnRequestClient() = default;

  /// The right to send one request on `topic` within `seconds`. A token cannot be returned.
  [[nodiscard]] virtual Result<PgnRequestToken, Error> request_token(const std::string& topic,
                                                                     std::uint64_t seconds) = 0;

  /// The error in words, for the log.
  [[nodiscard]] virtual std::string error_str(const Error& error) const = 0;
};

/// Creates a client that grants tokens while `client` is connected.
[[nodiscard]] std::shared_ptr<PgnRequestClient> create_pgn_request_client(
    const std::shared_ptr<com::ITransportClient>& client);

}  // namespace ecu::tamu::diag
