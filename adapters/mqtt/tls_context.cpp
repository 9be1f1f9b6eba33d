#include "mqtt/tls_context.h"

#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

namespace ecu::tamu::com::mqtt {

namespace {

// Requires `host` among the addresses of the certificate. False when `host` is not an address.
bool expect_address(SSL_CTX* context, const std::string& host) {
  return ::X509_VERIFY_PARAM_set1_ip_asc(::SSL_CTX_get0_param(context), host.c_str()) == 1;
}

bool expect_name(SSL_CTX* context, const std::string& host) {
  return ::X509_VERIFY_PARAM_set1_host(::SSL_CTX_get0_param(context), host.c_str(), host.size()) == 1;
}

}  // namespace

void TlsContext::Free::operator()(SSL_CTX* context) const noexcept {
  ::SSL_CTX_free(context);
}

TlsContext::TlsContext(const std::string& host) : context_(::SSL_CTX_new(::TLS_client_method())) {
  SSL_CTX* const context = context_.get();
  if (context == nullptr) {
    return;
  }
  if (!expect_address(context, host)) {
    server_name_ = host;
    if (!expect_name(context, host)) {
      context_.reset();
      return;
    }
  }
  ::SSL_CTX_set_default_passwd_cb(context, on_passphrase);
  ::SSL_CTX_set_default_passwd_cb_userdata(context, this);
  ::SSL_CTX_set_cert_verify_callback(context, on_verify, this);
  ::SSL_CTX_set_info_callback(context, on_progress);
  SSL_CTX_set_app_data(context, this);
}

TlsContext::~TlsContext() = default;

// Without it OpenSSL would ask on the terminal or read standard input, and wait there.
int TlsContext::on_passphrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* self) {
  constexpr int refused = -1;
  static_cast<TlsContext*>(self)->refusal_ = "keyfile is encrypted; encrypted keys are not supported";
  return refused;
}

int TlsContext::on_verify(X509_STORE_CTX* chain, void* self) {
  // The library's own callback, which compares the name, accepts no peer in a context that the library did
  // not create.
  ::X509_STORE_CTX_set_verify_cb(chain, [](int so_far, X509_STORE_CTX* /*chain*/) { return so_far; });
  const int trusted = ::X509_verify_cert(chain);
  if (trusted != 1) {
    auto& context = *static_cast<TlsContext*>(self);
    context.refusal_ = "the broker's certificate is not trusted: ";
    context.refusal_detail_ = ::X509_verify_cert_error_string(::X509_STORE_CTX_get_error(chain));
  }
  return trusted;
}

void TlsContext::on_progress(const SSL* session, int where, int detail) {
  auto& self = *static_cast<TlsContext*>(SSL_CTX_get_app_data(::SSL_get_SSL_CTX(session)));
  constexpr int level_shift = 8;
  if ((where & SSL_CB_HANDSHAKE_START) != 0) {
    self.begun_ = true;
    if (!self.server_name_.empty()) {
      // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): nothing else is called ahead of the hello
      ::SSL_ctrl(const_cast<SSL*>(session), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                 self.server_name_.data());
    }
  } else if ((where & SSL_CB_HANDSHAKE_DONE) != 0) {
    self.established_ = true;
  } else if (where == SSL_CB_READ_ALERT && detail >> level_shift == SSL3_AL_FATAL && !self.established_) {
    self.refusal_ = "the broker refuses the TLS handshake: ";
    self.refusal_detail_ = ::SSL_alert_desc_string_long(detail);
  }
}

}  // namespace ecu::tamu::com::mqtt
