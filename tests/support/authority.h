#pragma once

#include <stdexcept>
#include <string>

#include "support/process.h"
#include "support/temp_dir.h"

namespace tests {

/// A temporary authority, and the certificates that it signs. Its files are removed with it.
class Authority {
 public:
  Authority() { openssl("req -x509 $kind -subj /CN=authority -keyout ca.key -out ca.pem"); }

  [[nodiscard]] std::string file() const { return dir_.path("ca.pem"); }

  /// The authority's own key, encrypted.
  [[nodiscard]] std::string encrypted_key() const {
    openssl("pkey -in ca.key -aes128 -passout pass:secret -out encrypted.key");
    return dir_.path("encrypted.key");
  }

  /// Signs a certificate for a name such as "IP:127.0.0.1", valid for this number of days from now (before
  /// now, if negative). Returns the two lines `certfile` and `keyfile` with its paths; `assign` separates key
  /// and value.
  std::string certify(const std::string& name, const std::string& assign = " ", int days = 1) {
    const std::string stem = std::to_string(++certificates_);
    openssl("req -new $kind -subj /CN=unit -addext subjectAltName=" + name + " -keyout " + stem +
            ".key -out " + stem + ".csr");
    openssl("x509 -req -copy_extensions copy -CA ca.pem -CAkey ca.key -days " + std::to_string(days) +
            " -in " + stem + ".csr -out " + stem + ".pem");
    return "certfile" + assign + dir_.path(stem + ".pem") + "\nkeyfile" + assign + dir_.path(stem + ".key") +
           '\n';
  }

 private:
  void openssl(const std::string& arguments) const {
    Process shell(
        {"/bin/sh", "-c",
         "kind='-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes'; cd \"$0\" && openssl " + arguments,
         dir_.path("")});
    if (shell.wait() != 0) {
      throw std::runtime_error("openssl " + arguments + ": " + shell.output());
    }
  }

  TempDir dir_;
  int certificates_ = 0;
};

}  // namespace tests
