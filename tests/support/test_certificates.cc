#include "tests/support/test_certificates.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <cstdint>
#include <stdexcept>

namespace zln {

namespace {

constexpr char kServer[] = "Test server";
constexpr long kDay = 24L * 60 * 60;
// This machine, and the hosts of a library that is built without any.
constexpr char kServerNames[] =
    "IP:127.0.0.1,DNS:localhost,DNS:session-first.invalid,DNS:session-start.invalid,DNS:session-stop.invalid,DNS:ad-attempt.invalid,DNS:ad-zone-attempt.invalid,DNS:config.invalid";

// What the certificate says of its bearer and for how long.
struct Profile {
  std::string commonName;
  const char* alternativeNames;
  long validFrom;
  long validUntil;
  bool isAuthority;
};

void require(bool worked) {
  if (!worked) throw std::runtime_error("a test certificate cannot be made");
}

// Before anything else of it: its exit handler would meet the threads of the client under test.
void openLibrary() { OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr); }

KeyPointer newKey() {
  openLibrary();
  KeyPointer key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  require(key != nullptr);
  return key;
}

std::uint32_t randomNumber() {
  openLibrary();
  std::uint32_t number = 0;
  require(RAND_bytes(reinterpret_cast<unsigned char*>(&number), sizeof number) == 1);
  return number;
}

void setName(X509_NAME* name, const std::string& commonName) {
  require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                     reinterpret_cast<const unsigned char*>(commonName.c_str()), -1,
                                     -1, 0) == 1);
}

void addExtension(X509* certificate, X509* signer, int kind, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, signer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value);
  require(extension != nullptr && X509_add_ext(certificate, extension, -1) == 1);
  X509_EXTENSION_free(extension);
}

// Signed by `issuer`, by its own key when there is none.
Identity newIdentity(const Profile& profile, const Identity* issuer) {
  Identity identity{newKey(), CertificatePointer(X509_new(), X509_free)};
  X509* certificate = identity.certificate.get();
  require(certificate != nullptr && X509_set_version(certificate, X509_VERSION_3) == 1);
  require(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), randomNumber()) == 1);
  setName(X509_get_subject_name(certificate), profile.commonName);
  X509* signer = issuer == nullptr ? certificate : issuer->certificate.get();
  require(X509_set_issuer_name(certificate, X509_get_subject_name(signer)) == 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate), profile.validFrom);
  X509_gmtime_adj(X509_getm_notAfter(certificate), profile.validUntil);
  require(X509_set_pubkey(certificate, identity.key.get()) == 1);
  addExtension(certificate, signer, NID_basic_constraints,
               profile.isAuthority ? "critical,CA:TRUE" : "CA:FALSE");
  addExtension(certificate, signer, NID_subject_key_identifier, "hash");
  addExtension(certificate, signer, NID_authority_key_identifier, "keyid:always");
  if (profile.alternativeNames != nullptr) {
    addExtension(certificate, signer, NID_subject_alt_name, profile.alternativeNames);
  }
  EVP_PKEY* key = issuer == nullptr ? identity.key.get() : issuer->key.get();
  require(X509_sign(certificate, key, EVP_sha256()) > 0);
  return identity;
}

}  // namespace

// Two authorities must not share a name by chance, else one looks like a forgery of the other.
TestAuthority::TestAuthority()
    : TestAuthority("Test authority " + std::to_string(randomNumber())) {}

TestAuthority::TestAuthority(const std::string& name)
    : identity_(newIdentity({name, nullptr, -kDay, kDay, true}, nullptr)) {}

Identity TestAuthority::issue(CertificateFlaw flaw) const {
  switch (flaw) {
    case CertificateFlaw::kExpired:
      return newIdentity({kServer, kServerNames, -2 * kDay, -kDay, false}, &identity_);
    case CertificateFlaw::kSelfSigned:
      return newIdentity({kServer, kServerNames, -kDay, kDay, false}, nullptr);
    case CertificateFlaw::kWrongHost:
      return newIdentity({kServer, "DNS:elsewhere.invalid", -kDay, kDay, false}, &identity_);
    case CertificateFlaw::kNone:
      break;
  }
  return newIdentity({kServer, kServerNames, -kDay, kDay, false}, &identity_);
}

std::string TestAuthority::certificatePem() const {
  const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), BIO_free);
  require(memory && PEM_write_bio_X509(memory.get(), identity_.certificate.get()) == 1);
  char* text = nullptr;
  const long length = BIO_get_mem_data(memory.get(), &text);
  return {text, static_cast<std::size_t>(length)};
}

}  // namespace zln
