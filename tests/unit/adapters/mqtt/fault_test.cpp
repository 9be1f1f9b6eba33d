#include "mqtt/fault.h"

#include <mosquitto.h>

#include <cerrno>

#include "mqtt/fault_explanation.h"
#include "support/mqtt.h"
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

TEST(FaultTest, EveryEndOfAnEstablishedConnectionHasOneReason) {
  const std::string eof = "OpenSSL Error[0]: error:0A000126:SSL routines::unexpected eof while reading";
  const MqttSettings settings = tests::settings_for("127.0.0.1");
  const TlsContext tls("127.0.0.1");
  const std::string closed = "connection closed by the peer";
  const std::tuple<Fault, std::string, std::string> cases[] = {
      {fault_of(MOSQ_ERR_CONN_LOST), "", closed},
      {fault_of(MOSQ_ERR_CONN_LOST), eof, closed},
      {fault_of(MOSQ_ERR_TLS), eof, closed},
      {fault_of_errno(EPROTO), eof, closed},
      {fault_of_errno(ECONNRESET), "OpenSSL Error[0]: another one", closed},
      {fault_of(MOSQ_ERR_TLS), "bad record mac", "A TLS error occurred. (bad record mac)"},
  };
  for (const auto& [general, last_error, reason] : cases) {
    const Fault fault = explain(general, {.settings = settings,
                                          .tls = &tls,
                                          .reachable = true,
                                          .accepted = true,
                                          .refusal = 0,
                                          .last_error = last_error});
    EXPECT_EQ(fault.reason, reason) << last_error;
    EXPECT_EQ(fault.kind, reason == closed ? Kind::closed_by_peer : Kind::tls) << last_error;
  }
}

}  // namespace
