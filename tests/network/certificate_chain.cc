#include "tests/network/certificate_chain.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <utility>

namespace zln {

namespace {

constexpr long kDay = 24L * 60 * 60;
constexpr char kServerNames[] = "IP:127.0.0.1,IP:::1,DNS:localhost";
constexpr char kAuthority[] = "critical,CA:TRUE";
constexpr char kNoAuthority[] = "critical,CA:FALSE";

// What a certificate says of its bearer.
struct Profile {
  std::string name;
  const char* constraints = kNoAuthority;
  const char* alternativeNames = nullptr;
  const char* use = nullptr;
  long validFrom = -kDay;
  long validUntil = kDay;
};

void require(bool worked) {
  if (!worked) throw std::runtime_error("a test certificate cannot be made");
}

KeyPointer newKey() {
  // The exit handler of OpenSSL would meet the threads of the client under test.
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
  KeyPointer key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  require(key != nullptr);
  return key;
}

std::uint32_t randomNumber() {
  std::uint32_t number = 0;
  require(RAND_bytes(reinterpret_cast<unsigned char*>(&number), sizeof number) == 1);
  return number;
}

void addExtension(X509* certificate, int kind, const char* value) {
  if (value == nullptr) return;
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value);
  require(extension != nullptr && X509_add_ext(certificate, extension, -1) == 1);
  X509_EXTENSION_free(extension);
}

// Two authorities must not share a name, else one looks like a forgery of the other.
void setNameAndNumber(X509* certificate, const std::string& name) {
  const std::uint32_t number = randomNumber();
  const std::string text = name + " " + std::to_string(number);
  require(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), number) == 1);
  require(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
                                     reinterpret_cast<const unsigned char*>(text.c_str()), -1, -1,
                                     0) == 1);
}

// Signed by `issuer`, by its own key when there is none.
Identity issue(const Profile& profile, const Identity* issuer) {
  Identity identity{newKey(), CertificatePointer(X509_new(), X509_free)};
  X509* const certificate = identity.certificate.get();
  require(certificate != nullptr && X509_set_version(certificate, X509_VERSION_3) == 1);
  setNameAndNumber(certificate, profile.name);
  X509* const signer = issuer == nullptr ? certificate : issuer->certificate.get();
  require(X509_set_issuer_name(certificate, X509_get_subject_name(signer)) == 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate), profile.validFrom);
  X509_gmtime_adj(X509_getm_notAfter(certificate), profile.validUntil);
  require(X509_set_pubkey(certificate, identity.key.get()) == 1);
  addExtension(certificate, NID_basic_constraints, profile.constraints);
  addExtension(certificate, NID_subject_alt_name, profile.alternativeNames);
  addExtension(certificate, NID_ext_key_usage, profile.use);
  EVP_PKEY* const key = issuer == nullptr ? identity.key.get() : issuer->key.get();
  require(X509_sign(certificate, key, EVP_sha256()) > 0);
  return identity;
}

Profile intermediateProfile(ChainFlaw flaw) {
  Profile profile{"Test intermediate", kAuthority};
  if (flaw == ChainFlaw::kNoAuthority) profile.constraints = kNoAuthority;
  if (flaw == ChainFlaw::kExpiredAuthority) {
    profile.validFrom = -2 * kDay;
    profile.validUntil = -kDay;
  }
  return profile;
}

Profile serverProfile(ChainFlaw flaw) {
  Profile profile{"Test server", kNoAuthority, kServerNames, "serverAuth"};
  if (flaw == ChainFlaw::kWrongHost) profile.alternativeNames = "DNS:elsewhere.invalid";
  if (flaw == ChainFlaw::kClientsOnly) profile.use = "clientAuth";
  if (flaw == ChainFlaw::kExpired) {
    profile.validFrom = -2 * kDay;
    profile.validUntil = -kDay;
  }
  if (flaw == ChainFlaw::kNotYetValid) {
    profile.validFrom = kDay;
    profile.validUntil = 2 * kDay;
  }
  return profile;
}

ShownCertificates issueShown(ChainFlaw flaw, const Identity& root) {
  Identity intermediate = issue(intermediateProfile(flaw), &root);
  const bool selfSigned = flaw == ChainFlaw::kSelfSigned;
  ShownCertificates shown{issue(serverProfile(flaw), selfSigned ? nullptr : &intermediate), {}};
  if (flaw != ChainFlaw::kNoIntermediate) {
    shown.others.push_back(std::move(intermediate.certificate));
  }
  return shown;
}

}  // namespace

CertificateChain::CertificateChain(ChainFlaw flaw)
    : root_(issue({"Test root", kAuthority}, nullptr)), shown_(issueShown(flaw, root_)) {}

std::string CertificateChain::rootPem() const {
  const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), BIO_free);
  require(memory && PEM_write_bio_X509(memory.get(), root_.certificate.get()) == 1);
  char* text = nullptr;
  const long length = BIO_get_mem_data(memory.get(), &text);
  return {text, static_cast<std::size_t>(length)};
}

}  // namespace zln
