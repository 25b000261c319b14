#pragma once

#include <string>
#include <vector>

#include "tests/support/test_certificates.h"

namespace zln {

// What is wrong with the certificates that a server shows, if anything.
enum class ChainFlaw {
  kNone,
  kExpired,
  kNotYetValid,
  kSelfSigned,
  kWrongHost,
  kClientsOnly,       // Issued to a client, not to a server.
  kNoIntermediate,    // The authority between root and server is left out.
  kExpiredAuthority,  // That authority has expired.
  kNoAuthority,       // What stands between root and server is no authority.
};

// What a server shows of itself.
struct ShownCertificates {
  Identity server;
  std::vector<CertificatePointer> others;
};

// A root, an authority that it has issued, and a server for 127.0.0.1, ::1 and localhost under
// that.
class CertificateChain {
 public:
  explicit CertificateChain(ChainFlaw flaw = ChainFlaw::kNone);

  const ShownCertificates& shown() const { return shown_; }
  // What is to be trusted.
  std::string rootPem() const;
  // The authority between that and the server.
  std::string intermediatePem() const;

 private:
  Identity root_;
  ShownCertificates shown_;
};

}  // namespace zln
