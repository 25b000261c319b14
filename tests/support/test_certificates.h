#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace zln {

using KeyPointer = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using CertificatePointer = std::unique_ptr<X509, decltype(&X509_free)>;

// A certificate with its private key.
struct Identity {
  KeyPointer key;
  CertificatePointer certificate;
};

constexpr long kCertificateDay = 24L * 60 * 60;

// What a certificate says of its bearer and for how long, in OpenSSL's words.
struct CertificateProfile {
  std::string name;
  const char* constraints = "critical,CA:FALSE";
  const char* alternativeNames = nullptr;
  const char* use = nullptr;
  // Seconds from now.
  long validFrom = -kCertificateDay;
  long validUntil = kCertificateDay;
};

constexpr char kAuthorityConstraints[] = "critical,CA:TRUE";

// A new certificate, signed by `issuer`, or by its own key when there is none.
Identity issueCertificate(const CertificateProfile& profile, const Identity* issuer);

// The name with a random number. Two authorities must not share a name by chance, else one looks
// like a forgery of the other.
std::string uniqueName(const std::string& name);

std::string pemOf(X509* certificate);

// What is wrong with the certificate of a server, if anything.
enum class CertificateFlaw { kNone, kExpired, kSelfSigned, kWrongHost };

// A certificate authority of its own, made anew for each object.
class TestAuthority {
 public:
  TestAuthority();
  // Two of the same name look alike to whoever does not look at their keys.
  explicit TestAuthority(const std::string& name);

  // A certificate for 127.0.0.1, localhost and the hosts of a library that is built without any.
  Identity issue(CertificateFlaw flaw) const;
  std::string certificatePem() const;

 private:
  Identity identity_;
};

}  // namespace zln
