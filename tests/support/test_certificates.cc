#include "tests/support/test_certificates.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <cstdint>
#include <stdexcept>

namespace zln {

namespace {

constexpr long kDay = 24L * 60 * 60;

// This machine, and the hosts of a library that is built without any.
constexpr char kServerNames[] =
    "IP:127.0.0.1,IP:::1,DNS:localhost,DNS:session-first.invalid,DNS:session-start.invalid,"
    "DNS:session-stop.invalid,DNS:ad-attempt.invalid,DNS:ad-zone-attempt.invalid,"
    "DNS:config.invalid";

// What a certificate says, in OpenSSL's words.
struct Profile {
  std::string name;
  const char* constraints = "critical,CA:FALSE";
  const char* alternativeNames = nullptr;
  const char* use = nullptr;
  // Seconds from now.
  long validFrom = -kDay;
  long validUntil = kDay;
};

void require(bool worked) {
  if (!worked) throw std::runtime_error("a test certificate cannot be made");
}

// Before anything else of it: its exit handler would meet the threads of the client under test.
void openLibrary() { OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr); }

std::uint32_t randomNumber() {
  openLibrary();
  std::uint32_t number = 0;
  require(RAND_bytes(reinterpret_cast<unsigned char*>(&number), sizeof number) == 1);
  return number;
}

std::string uniqueName(const std::string& name) {
  return name + " " + std::to_string(randomNumber());
}

void setName(X509_NAME* name, const std::string& commonName) {
  require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                     reinterpret_cast<const unsigned char*>(commonName.c_str()), -1,
                                     -1, 0) == 1);
}

void addExtension(X509* certificate, X509* signer, int kind, const char* value) {
  if (value == nullptr) return;
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, signer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value);
  require(extension != nullptr && X509_add_ext(certificate, extension, -1) == 1);
  X509_EXTENSION_free(extension);
}

// A new certificate, signed by `issuer`, or by its own key when there is none.
Identity issueCertificate(const Profile& profile, const Identity* issuer) {
  openLibrary();
  Identity identity{{EVP_EC_gen("P-256"), EVP_PKEY_free}, {X509_new(), X509_free}};
  EVP_PKEY* const key = identity.key.get();
  X509* const certificate = identity.certificate.get();
  require(key != nullptr && X509_set_version(certificate, X509_VERSION_3) == 1);
  require(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), randomNumber()) == 1);
  setName(X509_get_subject_name(certificate), profile.name);
  X509* const signer = issuer == nullptr ? certificate : issuer->certificate.get();
  require(X509_set_issuer_name(certificate, X509_get_subject_name(signer)) == 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate), profile.validFrom);
  X509_gmtime_adj(X509_getm_notAfter(certificate), profile.validUntil);
  require(X509_set_pubkey(certificate, key) == 1);
  addExtension(certificate, signer, NID_basic_constraints, profile.constraints);
  addExtension(certificate, signer, NID_subject_key_identifier, "hash");
  addExtension(certificate, signer, NID_authority_key_identifier, "keyid:always");
  addExtension(certificate, signer, NID_subject_alt_name, profile.alternativeNames);
  addExtension(certificate, signer, NID_ext_key_usage, profile.use);
  require(X509_sign(certificate, issuer == nullptr ? key : issuer->key.get(), EVP_sha256()) > 0);
  return identity;
}

Profile authorityProfile(const std::string& name, CertificateFlaw flaw) {
  Profile profile{.name = name};
  if (flaw != CertificateFlaw::kNoAuthority) profile.constraints = "critical,CA:TRUE";
  if (flaw == CertificateFlaw::kExpiredAuthority) {
    profile.validFrom = -2 * kDay;
    profile.validUntil = -kDay;
  }
  return profile;
}

Profile serverProfile(CertificateFlaw flaw) {
  Profile profile{.name = "Test server", .alternativeNames = kServerNames, .use = "serverAuth"};
  if (flaw == CertificateFlaw::kWrongHost) profile.alternativeNames = "DNS:elsewhere.invalid";
  if (flaw == CertificateFlaw::kClientsOnly) profile.use = "clientAuth";
  if (flaw == CertificateFlaw::kExpired) {
    profile.validFrom = -2 * kDay;
    profile.validUntil = -kDay;
  }
  if (flaw == CertificateFlaw::kNotYetValid) {
    profile.validFrom = kDay;
    profile.validUntil = 2 * kDay;
  }
  return profile;
}

}  // namespace

TestAuthority::TestAuthority() : TestAuthority(uniqueName("Test root")) {}

TestAuthority::TestAuthority(const std::string& name)
    : identity_(issueCertificate(authorityProfile(name, CertificateFlaw::kNone), nullptr)) {}

TestAuthority::TestAuthority(const TestAuthority& issuer, CertificateFlaw flaw)
    : identity_(issueCertificate(authorityProfile(uniqueName("Test intermediate"), flaw),
                                 &issuer.identity_)) {}

Identity TestAuthority::issue(CertificateFlaw flaw) const {
  const bool isSelfSigned = flaw == CertificateFlaw::kSelfSigned;
  return issueCertificate(serverProfile(flaw), isSelfSigned ? nullptr : &identity_);
}

std::string TestAuthority::certificatePem() const {
  const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), BIO_free);
  require(memory && PEM_write_bio_X509(memory.get(), certificate()) == 1);
  char* text = nullptr;
  const long length = BIO_get_mem_data(memory.get(), &text);
  return {text, static_cast<std::size_t>(length)};
}

CertificateChain::CertificateChain(CertificateFlaw flaw)
    : flaw_(flaw), intermediate_(root_, flaw), server_(intermediate_.issue(flaw)) {}

void CertificateChain::useIn(SSL_CTX* context) const {
  require(SSL_CTX_use_certificate(context, server_.certificate.get()) == 1);
  require(SSL_CTX_use_PrivateKey(context, server_.key.get()) == 1);
  if (flaw_ == CertificateFlaw::kNoIntermediate) return;
  require(SSL_CTX_add1_chain_cert(context, intermediate_.certificate()) == 1);
}

}  // namespace zln
