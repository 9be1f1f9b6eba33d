#include "mqtt/fault.h"

#include <mosquittopp.h>

#include <cerrno>
#include <cstring>

namespace ecu::tamu::com::mqtt {

namespace {

// An end of file (no error number), a reset and a write that comes too late are the same event. Which one is
// seen depends on timing, so all must map to one reason.
Fault closed_by_peer() {
  return {ConnectionFailure::closed_by_peer, "connection closed by the peer"};
}

}  // namespace

Fault fault_of_errno(int error) {
  if (error == ENOMEM) {
    return {ConnectionFailure::internal, out_of_memory};
  }
  return error == 0 || error == ECONNRESET || error == EPIPE
             ? closed_by_peer()
             : Fault{ConnectionFailure::unreachable, std::strerror(error)};
}

Fault fault_of(int result) {
  switch (result) {
    case MOSQ_ERR_ERRNO:
      return fault_of_errno(errno);
    case MOSQ_ERR_CONN_LOST:
      return closed_by_peer();
    case MOSQ_ERR_KEEPALIVE:  // the library has no text for this code
      return {ConnectionFailure::no_answer, "no answer"};
    case MOSQ_ERR_NOMEM:
      return {ConnectionFailure::internal, out_of_memory};
    case MOSQ_ERR_TLS:
      return {ConnectionFailure::tls, mosqpp::strerror(result)};
    case MOSQ_ERR_PROTOCOL:
    case MOSQ_ERR_MALFORMED_PACKET:  // the library has no text for this code either
      return {ConnectionFailure::protocol, mosqpp::strerror(MOSQ_ERR_PROTOCOL)};
    default:
      return {ConnectionFailure::internal, mosqpp::strerror(result)};
  }
}

Fault fault_of_refusal(int code) {
  constexpr int bad_credentials = 4;
  constexpr int not_authorised = 5;
  const auto kind = code == bad_credentials  ? ConnectionFailure::bad_credentials
                    : code == not_authorised ? ConnectionFailure::not_authorised
                                             : ConnectionFailure::refused;
  return {kind, mosqpp::connack_string(code)};
}

}  // namespace ecu::tamu::com::mqtt
