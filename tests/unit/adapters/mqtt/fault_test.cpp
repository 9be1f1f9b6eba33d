#include "mqtt/fault.h"

#include <mosquitto.h>

#include <cerrno>

#include "support/testing.h"

namespace {

using namespace ecu::tamu::com::mqtt;
using Kind = ecu::tamu::com::ConnectionFailure;

TEST(FaultTest, EveryFailureHasItsKindAndReason) {
  const auto refused_by_errno = [] {
    errno = ECONNREFUSED;
    return fault_of(MOSQ_ERR_ERRNO);
  };
  const std::tuple<Fault, Kind, std::string> cases[] = {
      {fault_of_errno(0), Kind::closed_by_peer, "connection closed by the peer"},
      {fault_of_errno(ECONNRESET), Kind::closed_by_peer, "connection closed by the peer"},
      {fault_of_errno(EPIPE), Kind::closed_by_peer, "connection closed by the peer"},
      {fault_of_errno(ENOMEM), Kind::internal, "out of memory"},
      {refused_by_errno(), Kind::unreachable, "Connection refused"},
      {fault_of(MOSQ_ERR_CONN_LOST), Kind::closed_by_peer, "connection closed by the peer"},
      {fault_of(MOSQ_ERR_KEEPALIVE), Kind::no_answer, "no answer"},
      {fault_of(MOSQ_ERR_NOMEM), Kind::internal, "out of memory"},
      {fault_of(MOSQ_ERR_TLS), Kind::tls, "A TLS error occurred."},
      {fault_of(MOSQ_ERR_MALFORMED_PACKET), Kind::protocol,
       "A network protocol error occurred when communicating with the broker."},
      {fault_of_refusal(2), Kind::refused, "Connection Refused: identifier rejected."},
      {fault_of_refusal(5), Kind::not_authorised, "Connection Refused: not authorised."},
  };
  for (const auto& [fault, kind, reason] : cases) {
    EXPECT_EQ(fault.reason, reason);
    EXPECT_EQ(fault.kind, kind) << reason;
  }
}

}  // namespace
