// Certificates that must not be trusted, and encryption that is too weak or does not match.

#include <openssl/ssl.h>

#include "tests/network/scene.h"

namespace zln {

namespace {

Row shows(const std::string& what, CertificateFlaw flaw) {
  return {"certificate " + what,
          [flaw](Scene& scene) {
            scene.show(flaw);
            return scene.server().url("/session");
          },
          temporaryError(-1202)};
}

Row encrypts(const std::string& what, void (*settings)(SSL_CTX*), const Outcome& outcome) {
  return {what,
          [settings](Scene& scene) {
            scene.server().configure(settings);
            return scene.server().url("/session");
          },
          outcome};
}

// Goes as far down as OpenSSL knows.
void onlyVersion(SSL_CTX* context, int version) {
  SSL_CTX_set_security_level(context, 0);
  SSL_CTX_set_cipher_list(context, "ALL:@SECLEVEL=0");
  SSL_CTX_set_min_proto_version(context, version);
  SSL_CTX_set_max_proto_version(context, version);
}

std::vector<Row> versions() {
  const Outcome refused = temporaryError(-1200);
  const Outcome good = response(200, R"({"success":true})");
  return {
      encrypts(
          "TLS 1.0 alone", [](SSL_CTX* it) { onlyVersion(it, TLS1_VERSION); }, refused),
      encrypts(
          "TLS 1.1 alone", [](SSL_CTX* it) { onlyVersion(it, TLS1_1_VERSION); }, refused),
      encrypts(
          "TLS 1.2 alone", [](SSL_CTX* it) { onlyVersion(it, TLS1_2_VERSION); }, good),
      encrypts(
          "TLS 1.3 alone", [](SSL_CTX* it) { onlyVersion(it, TLS1_3_VERSION); }, good),
      // Only for a key of RSA, which the server does not have.
      encrypts(
          "no cipher in common",
          [](SSL_CTX* it) {
            SSL_CTX_set_max_proto_version(it, TLS1_2_VERSION);
            SSL_CTX_set_cipher_list(it, "AES128-GCM-SHA256");
          },
          refused),
      encrypts(
          "no cipher in common in TLS 1.3",
          [](SSL_CTX* it) {
            SSL_CTX_set_min_proto_version(it, TLS1_3_VERSION);
            SSL_CTX_set_ciphersuites(it, "TLS_AES_128_CCM_8_SHA256");
          },
          refused),
      encrypts(
          "encryption without a certificate",
          [](SSL_CTX* it) {
            SSL_CTX_set_security_level(it, 0);
            SSL_CTX_set_max_proto_version(it, TLS1_2_VERSION);
            SSL_CTX_set_cipher_list(it, "aNULL:@SECLEVEL=0");
          },
          refused),
      encrypts(
          "client's certificate demanded",
          [](SSL_CTX* it) {
            SSL_CTX_set_verify(it, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
          },
          temporaryErrorOf({-1005, -1200})),
  };
}

// The file of authorities at the time of a request that comes after a good one.
Row trusting(const std::string& what, const std::optional<std::string>& authorities,
             const Outcome& outcome) {
  Row row{what,
          [authorities](Scene& scene) {
            scene.trust(authorities);
            return scene.server().url("/session");
          },
          outcome};
  row.afterGoodRequest = true;
  return row;
}

std::vector<Row> roots() {
  return {
      {"root untrusted",
       [](Scene& scene) {
         scene.trust(CertificateChain().rootPem());
         return scene.server().url("/session");
       },
       temporaryError(-1202)},
      {"the authority below the root trusted alone",
       [](Scene& scene) {
         scene.trust(scene.server().chain().intermediatePem());
         return scene.server().url("/session");
       },
       response(200, R"({"success":true})")},
      trusting("root removed while the game runs", CertificateChain().rootPem(),
               temporaryError(-1202)),
      trusting("file of roots emptied while the game runs", "", temporaryError(-1200)),
      trusting("file of roots broken while the game runs", "-----BEGIN CERTIFICATE-----\nMII",
               temporaryError(-1200)),
      trusting("file of roots gone for a moment", std::nullopt,
               response(200, R"({"success":true})")),
      {"file of roots never there",
       [](Scene& scene) {
         scene.setVariable("SSL_CERT_FILE", "/nowhere/authorities.pem");
         return scene.server().url("/session");
       },
       temporaryError(-1200)},
  };
}

}  // namespace

std::vector<Row> trustRows() {
  std::vector<Row> rows = {
      shows("expired", CertificateFlaw::kExpired),
      shows("not yet valid", CertificateFlaw::kNotYetValid),
      shows("signed by itself", CertificateFlaw::kSelfSigned),
      shows("of another host", CertificateFlaw::kWrongHost),
      shows("of a client", CertificateFlaw::kClientsOnly),
      shows("without the one between", CertificateFlaw::kNoIntermediate),
      shows("of an expired authority", CertificateFlaw::kExpiredAuthority),
      shows("of one that is no authority", CertificateFlaw::kNoAuthority),
  };
  for (const std::vector<Row>& part : {roots(), versions()}) {
    rows.insert(rows.end(), part.begin(), part.end());
  }
  return rows;
}

}  // namespace zln
