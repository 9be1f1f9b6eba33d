#pragma once

#include <openssl/types.h>

#include <memory>
#include <string>

namespace ecu::tamu::com::mqtt {

/// The OpenSSL context from which the client library creates its TLS session. The library knows the
/// authorities and connects to an address; the context knows the name that is requested from the peer (RFC
/// 6066, 3) and that the peer must prove. After the handshake it knows the result in detail, whereas the
/// library has one text for a wrong name, a wrong authority and an expired certificate.
class TlsContext {
 public:
  /// `host` is the name or the address that the peer's certificate must be for.
  explicit TlsContext(const std::string& host);
  ~TlsContext();
  TlsContext(const TlsContext&) = delete;
  TlsContext& operator=(const TlsContext&) = delete;

  /// For the library, which may use it as long as this object lives; null when OpenSSL could not create it.
  [[nodiscard]] SSL_CTX* handle() const noexcept { return context_.get(); }

  /// Why this side cannot use its key or does not trust the peer, or why the peer refuses the handshake;
  /// empty when nothing of this is known.
  [[nodiscard]] std::string refusal() const { return std::string(refusal_) + refusal_detail_; }
  /// Whether a handshake was attempted, which requires that all files are valid.
  [[nodiscard]] bool begun() const noexcept { return begun_; }
  /// Whether the handshake was completed on this side. The peer may still refuse this side's certificate.
  [[nodiscard]] bool established() const noexcept { return established_; }

 private:
  static int on_passphrase(char* buffer, int size, int writing, void* self);
  static int on_verify(X509_STORE_CTX* chain, void* self);
  static void on_progress(const SSL* session, int where, int detail);

  struct Free {
    void operator()(SSL_CTX* context) const noexcept;
  };
  std::unique_ptr<SSL_CTX, Free> context_;
  std::string server_name_;  // empty when the host is an address
  // Constant texts: memory must not run out in OpenSSL's callbacks.
  const char* refusal_ = "";
  const char* refusal_detail_ = "";
  bool begun_ = false;
  bool established_ = false;
};

}  // namespace ecu::tamu::com::mqtt
