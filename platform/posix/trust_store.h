#pragma once

#include <curl/curl.h>

#include <memory>
#include <mutex>
#include <string>

struct x509_store_st;

namespace zln {

// What connections share as long as the trusted authorities stay the same.
struct Trust {
  std::shared_ptr<x509_store_st> authorities;
  // The TLS sessions of earlier connections, each for the next one to the same host and port.
  std::shared_ptr<CURLSH> sessions;
};

// Whom connections trust, looked for where OpenSSL does: in the file that SSL_CERT_FILE names, and
// in the folders that SSL_CERT_DIR names, else in the system's. Of a folder only that is read which
// a server's certificate leads to, so it has to be one in which certificates are found by the
// hashes of their names. Where the system's is not, and neither variable is set, the system's file
// counts. When one of them changes it is read again, and no session is kept.
class TrustStore {
 public:
  // Null when no certificate can be read from the file that SSL_CERT_FILE names. Any thread may
  // call it; they wait for the one that reads. Any thread may use what it gives.
  std::shared_ptr<const Trust> now();
  // No connection to come is offered one of these sessions.
  void forgetSessions(const std::shared_ptr<const Trust>& trust);

 private:
  std::mutex mutex_;
  std::string file_;
  // Of the file and the folders.
  std::string state_;
  std::shared_ptr<const Trust> trust_;
};

}  // namespace zln
