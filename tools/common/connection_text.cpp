#include "common/connection_text.h"

#include "common/notes.h"

namespace ecu::tools {

using tamu::com::ConnectionFailure;

std::string connection_text(const std::string& broker, ConnectionFailure failure, const std::string& reason) {
  const std::string subject = "broker " + broker + ' ';
  switch (failure) {  // the transport's own reasons for these help only developers
    case ConnectionFailure::bad_credentials:
      return subject + "rejects the login: bad user name or password; check --user and --password-file";
    case ConnectionFailure::not_authorised:
      return subject + "rejects the login: not authorised; check --user and --password-file";
    case ConnectionFailure::protocol:
      return subject + "does not speak MQTT 3.1.1: check the port, and whether it expects TLS (--cafile)";
    default:
      return subject + "not reachable: " + reason;
  }
}

std::string refusal_text(const std::string& filter) {
  return "the broker refuses the subscription to " + filter;
}

std::string loss_text(std::uint64_t count) {
  return counted(count, "message") + " lost: arrived faster than processed";
}

}  // namespace ecu::tools
