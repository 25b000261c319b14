#pragma once

#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace zln {

// A certificate with its private key.
struct Identity {
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key;
  std::unique_ptr<X509, decltype(&X509_free)> certificate;
};

// What is wrong with the certificates that a server shows, if anything.
enum class CertificateFlaw {
  kNone,
  kExpired,
  kNotYetValid,
  kSelfSigned,
  kWrongHost,
  kClientsOnly,       // Issued to a client, not to a server.
  kNoIntermediate,    // The CA between root and server is left out.
  kExpiredAuthority,  // That CA has expired.
  kNoAuthority,       // What is between root and server is no CA.
};

// A CA with a new key, a root unless another one issues it.
class TestAuthority {
 public:
  // With a random name: two CAs that share one by chance look like forgeries of each other.
  TestAuthority();
  // Two of the same name look alike to whoever does not look at their keys.
  explicit TestAuthority(const std::string& name);
  TestAuthority(const TestAuthority& issuer, CertificateFlaw flaw);

  // A certificate for this machine and the hosts of a library that is built without any.
  Identity issue(CertificateFlaw flaw) const;
  X509* certificate() const { return identity_.certificate.get(); }
  std::string certificatePem() const;

 private:
  Identity identity_;
};

// A root, a CA that it has issued, and a server below that.
class CertificateChain {
 public:
  explicit CertificateChain(CertificateFlaw flaw = CertificateFlaw::kNone);

  // What is to be trusted.
  std::string rootPem() const { return root_.certificatePem(); }
  std::string intermediatePem() const { return intermediate_.certificatePem(); }
  // Has connections show the server, and the CA unless it is left out.
  void useIn(SSL_CTX* context) const;

 private:
  CertificateFlaw flaw_;
  TestAuthority root_;
  TestAuthority intermediate_;
  Identity server_;
};

}  // namespace zln
