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

// This machine, and the hosts of a library that is built without any.
constexpr char kServerNames[] =
    "IP:127.0.0.1,DNS:localhost,DNS:session-first.invalid,DNS:session-start.invalid,DNS:session-stop.invalid,DNS:ad-attempt.invalid,DNS:ad-zone-attempt.invalid,DNS:config.invalid";

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
  if (value == nullptr) return;
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, signer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value);
  require(extension != nullptr && X509_add_ext(certificate, extension, -1) == 1);
  X509_EXTENSION_free(extension);
}

CertificateProfile serverProfile(CertificateFlaw flaw) {
  CertificateProfile profile{.name = "Test server", .alternativeNames = kServerNames};
  if (flaw == CertificateFlaw::kWrongHost) profile.alternativeNames = "DNS:elsewhere.invalid";
  if (flaw == CertificateFlaw::kExpired) {
    profile.validFrom = -2 * kCertificateDay;
    profile.validUntil = -kCertificateDay;
  }
  return profile;
}

}  // namespace

Identity issueCertificate(const CertificateProfile& profile, const Identity* issuer) {
  Identity identity{newKey(), CertificatePointer(X509_new(), X509_free)};
  X509* const certificate = identity.certificate.get();
  require(certificate != nullptr && X509_set_version(certificate, X509_VERSION_3) == 1);
  require(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), randomNumber()) == 1);
  setName(X509_get_subject_name(certificate), profile.name);
  X509* const signer = issuer == nullptr ? certificate : issuer->certificate.get();
  require(X509_set_issuer_name(certificate, X509_get_subject_name(signer)) == 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate), profile.validFrom);
  X509_gmtime_adj(X509_getm_notAfter(certificate), profile.validUntil);
  require(X509_set_pubkey(certificate, identity.key.get()) == 1);
  addExtension(certificate, signer, NID_basic_constraints, profile.constraints);
  addExtension(certificate, signer, NID_subject_key_identifier, "hash");
  addExtension(certificate, signer, NID_authority_key_identifier, "keyid:always");
  addExtension(certificate, signer, NID_subject_alt_name, profile.alternativeNames);
  addExtension(certificate, signer, NID_ext_key_usage, profile.use);
  EVP_PKEY* const key = issuer == nullptr ? identity.key.get() : issuer->key.get();
  require(X509_sign(certificate, key, EVP_sha256()) > 0);
  return identity;
}

std::string uniqueName(const std::string& name) {
  return name + " " + std::to_string(randomNumber());
}

std::string pemOf(X509* certificate) {
  const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), BIO_free);
  require(memory && PEM_write_bio_X509(memory.get(), certificate) == 1);
  char* text = nullptr;
  const long length = BIO_get_mem_data(memory.get(), &text);
  return {text, static_cast<std::size_t>(length)};
}

TestAuthority::TestAuthority() : TestAuthority(uniqueName("Test authority")) {}

TestAuthority::TestAuthority(const std::string& name)
    : identity_(issueCertificate({.name = name, .constraints = kAuthorityConstraints}, nullptr)) {}

Identity TestAuthority::issue(CertificateFlaw flaw) const {
  const bool isSelfSigned = flaw == CertificateFlaw::kSelfSigned;
  return issueCertificate(serverProfile(flaw), isSelfSigned ? nullptr : &identity_);
}

std::string TestAuthority::certificatePem() const { return pemOf(identity_.certificate.get()); }

}  // namespace zln
