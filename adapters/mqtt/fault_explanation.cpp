#include "mqtt/fault_explanation.h"

#include <utility>

namespace ecu::tamu::com::mqtt {

namespace {

// The peer's last data may be lost, and how the end of the connection shows depends on timing. Both must map
// to one reason. Returns std::nullopt for a failure unrelated to TLS.
Failure explain_handshake(const Fault& general, const Circumstances& known) {
  const auto because = [](const std::string& reason) { return Fault{ConnectionFailure::tls, reason}; };
  if (!known.tls->refusal().empty()) {
    return because(known.tls->refusal());
  }
  if (known.tls->established()) {
    return because(known.settings.certfile.empty()
                       ? "TLS ended by the broker, does it ask for a certificate?"
                       : "TLS ended by the broker, does it trust the client's certificate?");
  }
  if (known.reachable || general.kind == ConnectionFailure::closed_by_peer) {
    return because("no TLS handshake, does the peer speak TLS?");
  }
  // The library loads the files before the handshake; its reasons help only developers.
  if (general.kind == ConnectionFailure::tls) {
    return because(
        "cafile, certfile or keyfile is damaged or empty, or the key belongs to another certificate");
  }
  return std::nullopt;
}

// OpenSSL's error when a TLS connection ends without being closed, which may come with any code.
bool is_end_of_file(const std::string& library_error) {
  return library_error.find("unexpected eof while reading") != std::string::npos;
}

}  // namespace

Fault explain(Fault general, const Circumstances& known) {
  if (general.reason == out_of_memory) {
    return general;
  }
  if (known.refusal != 0) {
    return fault_of_refusal(known.refusal);
  }
  if (known.accepted && is_end_of_file(known.last_error)) {
    return fault_of_errno(0);
  }
  const bool closed = general.kind == ConnectionFailure::closed_by_peer;
  if (known.tls == nullptr && !known.accepted && !known.settings.is_unix_socket() && closed) {
    general.reason += ", does it expect TLS?";
    return general;
  }
  if (known.tls != nullptr && !known.accepted) {
    if (auto failure = explain_handshake(general, known)) {
      return *std::move(failure);
    }
  }
  // The library logs an error for some ends of a connection and none for others.
  if (!closed && !known.last_error.empty()) {
    general.reason += " (" + known.last_error + ")";
  }
  return general;
}

}  // namespace ecu::tamu::com::mqtt
