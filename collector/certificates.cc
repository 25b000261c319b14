#include "collector/certificates.h"

#include <fcntl.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string>

namespace zln::collector {
namespace {

constexpr long kHour = 60L * 60;
constexpr long kDay = 24 * kHour;
constexpr long kYear = 365 * kDay;
constexpr int kSerialBits = 127;
constexpr mode_t kPublicMode = 0644;
constexpr mode_t kPrivateMode = 0600;

template <auto Free>
struct Freed {
  template <typename T>
  void operator()(T* object) const {
    Free(object);
  }
};
using Key = std::unique_ptr<EVP_PKEY, Freed<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freed<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Freed<X509_EXTENSION_free>>;
using Number = std::unique_ptr<BIGNUM, Freed<BN_free>>;
using File = std::unique_ptr<std::FILE, Freed<std::fclose>>;

void require(bool done, const char* step) {
  if (!done) throw std::runtime_error(std::string("cannot make a certificate: ") + step);
}

Key makeKey() {
  Key key(EVP_EC_gen("P-256"));
  require(key != nullptr, "the key");
  return key;
}

void setRandomSerial(X509* certificate) {
  const Number serial(BN_new());
  require(serial && BN_rand(serial.get(), kSerialBits, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1 &&
              BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate)) != nullptr,
          "the serial number");
}

// In seconds from now.
struct Lifetime {
  long begin;
  long end;
};

// Begins an hour ago, so that a clock that is a little late accepts the certificate.
constexpr Lifetime kAYear{-kHour, kYear};
constexpr Lifetime kOver{-2 * kDay, -kDay};

void setLifetime(X509* certificate, const Lifetime& lifetime) {
  require(X509_gmtime_adj(X509_getm_notBefore(certificate), lifetime.begin) != nullptr &&
              X509_gmtime_adj(X509_getm_notAfter(certificate), lifetime.end) != nullptr,
          "the lifetime");
}

void setName(X509_NAME* name, const char* text) {
  require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                     reinterpret_cast<const unsigned char*>(text), -1, -1, 0) == 1,
          "the name");
}

void addExtension(X509* certificate, X509* issuer, int kind, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value));
  require(extension && X509_add_ext(certificate, extension.get(), -1) == 1, value);
}

Certificate makeUnsigned(EVP_PKEY* key, const char* name, const Lifetime& lifetime) {
  Certificate certificate(X509_new());
  require(certificate && X509_set_version(certificate.get(), X509_VERSION_3) == 1, "the version");
  setRandomSerial(certificate.get());
  setLifetime(certificate.get(), lifetime);
  setName(X509_get_subject_name(certificate.get()), name);
  require(X509_set_pubkey(certificate.get(), key) == 1, "the public key");
  return certificate;
}

void sign(X509* certificate, X509* issuer, EVP_PKEY* issuerKey) {
  require(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1 &&
              X509_sign(certificate, issuerKey, EVP_sha256()) > 0,
          "the signature");
}

Certificate makeAuthority(EVP_PKEY* key) {
  Certificate authority = makeUnsigned(key, "zln-collector throw-away authority", kAYear);
  X509* it = authority.get();
  addExtension(it, it, NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
  addExtension(it, it, NID_key_usage, "critical,keyCertSign,cRLSign");
  addExtension(it, it, NID_subject_key_identifier, "hash");
  sign(it, it, key);
  return authority;
}

// What the certificate of a server says of it.
struct ServerProfile {
  std::string names;
  Lifetime lifetime;
};

constexpr char kOwnNames[] = "DNS:localhost,IP:127.0.0.1,IP:::1";
constexpr char kWrongName[] = "DNS:elsewhere.invalid";

bool isAddress(const std::string& host) {
  return std::unique_ptr<ASN1_OCTET_STRING, Freed<ASN1_OCTET_STRING_free>>(
             a2i_IPADDRESS(host.c_str())) != nullptr;
}

std::string namesWith(const std::vector<std::string>& hosts) {
  std::string names = kOwnNames;
  for (const std::string& host : hosts) names += (isAddress(host) ? ",IP:" : ",DNS:") + host;
  return names;
}

Certificate makeServer(const ServerProfile& profile, EVP_PKEY* key, X509* authority,
                       EVP_PKEY* authorityKey) {
  Certificate server = makeUnsigned(key, "zln-collector", profile.lifetime);
  X509* it = server.get();
  addExtension(it, authority, NID_basic_constraints, "critical,CA:FALSE");
  addExtension(it, authority, NID_key_usage, "critical,digitalSignature");
  addExtension(it, authority, NID_ext_key_usage, "serverAuth");
  addExtension(it, authority, NID_subject_alt_name, profile.names.c_str());
  addExtension(it, authority, NID_subject_key_identifier, "hash");
  addExtension(it, authority, NID_authority_key_identifier, "keyid:always");
  sign(it, authority, authorityKey);
  return server;
}

[[noreturn]] void failWriting(const std::filesystem::path& path) {
  throw std::runtime_error("cannot write " + path.string() + ": " + std::strerror(errno));
}

// Makes the file anew, so that it has the wanted mode from its first byte on.
File create(const std::filesystem::path& path, mode_t mode) {
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) failWriting(path);
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  if (descriptor < 0) failWriting(path);
  return File(::fdopen(descriptor, "w"));
}

void finish(File file, bool written, const std::filesystem::path& path) {
  if (std::fclose(file.release()) != 0 || !written) failWriting(path);
}

void writeCertificate(const std::filesystem::path& path, X509* certificate) {
  File file = create(path, kPublicMode);
  const bool written = PEM_write_X509(file.get(), certificate) == 1;
  finish(std::move(file), written, path);
}

void writeKey(const std::filesystem::path& path, EVP_PKEY* key) {
  File file = create(path, kPrivateMode);
  const bool written =
      PEM_write_PrivateKey(file.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1;
  finish(std::move(file), written, path);
}

void makeFiles(const CertificateFiles& files, const std::vector<std::string>& hosts) {
  const Key authorityKey = makeKey();
  const Certificate authority = makeAuthority(authorityKey.get());
  const Key serverKey = makeKey();
  const auto writeServer = [&](const std::filesystem::path& path, const ServerProfile& profile) {
    const Certificate server =
        makeServer(profile, serverKey.get(), authority.get(), authorityKey.get());
    writeCertificate(path, server.get());
  };
  writeKey(files.key, serverKey.get());
  writeServer(files.certificate, {namesWith(hosts), kAYear});
  writeServer(files.expired, {namesWith(hosts), kOver});
  writeServer(files.wrongHost, {kWrongName, kAYear});
  writeCertificate(files.authority, authority.get());
}

File openForReading(const std::filesystem::path& path) {
  return File(std::fopen(path.c_str(), "r"));
}

Certificate readCertificate(const std::filesystem::path& path) {
  const File file = openForReading(path);
  return Certificate(file ? PEM_read_X509(file.get(), nullptr, nullptr, nullptr) : nullptr);
}

Key readKey(const std::filesystem::path& path) {
  const File file = openForReading(path);
  return Key(file ? PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr) : nullptr);
}

bool lastsAnotherDay(X509* certificate) {
  std::time_t tomorrow = std::time(nullptr) + kDay;
  return X509_cmp_time(X509_get0_notAfter(certificate), &tomorrow) > 0;
}

bool belongTogether(X509* server, EVP_PKEY* key, X509* authority) {
  return server != nullptr && X509_check_private_key(server, key) == 1 &&
         X509_verify(server, X509_get0_pubkey(authority)) == 1;
}

bool isFor(X509* server, const std::vector<std::string>& hosts) {
  return std::ranges::all_of(hosts, [&](const std::string& host) {
    return isAddress(host) ? X509_check_ip_asc(server, host.c_str(), 0) == 1
                           : X509_check_host(server, host.c_str(), host.size(), 0, nullptr) == 1;
  });
}

bool areUsable(const CertificateFiles& files, const std::vector<std::string>& hosts) {
  const Certificate authority = readCertificate(files.authority);
  const Key key = readKey(files.key);
  if (!authority || !key) return false;
  const Certificate sound = readCertificate(files.certificate);
  const Certificate expired = readCertificate(files.expired);
  const Certificate wrongHost = readCertificate(files.wrongHost);
  const auto fits = [&](X509* server) {
    return belongTogether(server, key.get(), authority.get());
  };
  return fits(sound.get()) && fits(expired.get()) && fits(wrongHost.get()) &&
         isFor(sound.get(), hosts) && isFor(expired.get(), hosts) &&
         lastsAnotherDay(authority.get()) && lastsAnotherDay(sound.get()) &&
         lastsAnotherDay(wrongHost.get());
}

}  // namespace

CertificateFiles certificateFiles(const std::filesystem::path& folder,
                                  const std::vector<std::string>& hosts) {
  const CertificateFiles files{folder / "ca.pem", folder / "server.pem",
                               folder / "server-expired.pem", folder / "server-wrong-host.pem",
                               folder / "server.key"};
  if (!areUsable(files, hosts)) makeFiles(files, hosts);
  return files;
}

}  // namespace zln::collector
