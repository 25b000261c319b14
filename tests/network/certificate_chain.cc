#include "tests/network/certificate_chain.h"

#include <utility>

namespace zln {

namespace {

constexpr char kServerNames[] = "IP:127.0.0.1,IP:::1,DNS:localhost";
constexpr long kDay = kCertificateDay;

CertificateProfile intermediateProfile(ChainFlaw flaw) {
  CertificateProfile profile{.name = uniqueName("Test intermediate")};
  if (flaw != ChainFlaw::kNoAuthority) profile.constraints = kAuthorityConstraints;
  if (flaw == ChainFlaw::kExpiredAuthority) {
    profile.validFrom = -2 * kDay;
    profile.validUntil = -kDay;
  }
  return profile;
}

CertificateProfile serverProfile(ChainFlaw flaw) {
  CertificateProfile profile{
      .name = "Test server", .alternativeNames = kServerNames, .use = "serverAuth"};
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
  Identity intermediate = issueCertificate(intermediateProfile(flaw), &root);
  const bool selfSigned = flaw == ChainFlaw::kSelfSigned;
  ShownCertificates shown{
      issueCertificate(serverProfile(flaw), selfSigned ? nullptr : &intermediate), {}};
  if (flaw != ChainFlaw::kNoIntermediate) {
    shown.others.push_back(std::move(intermediate.certificate));
  }
  return shown;
}

}  // namespace

CertificateChain::CertificateChain(ChainFlaw flaw)
    : root_(issueCertificate(
          {.name = uniqueName("Test root"), .constraints = kAuthorityConstraints}, nullptr)),
      shown_(issueShown(flaw, root_)) {}

std::string CertificateChain::rootPem() const { return pemOf(root_.certificate.get()); }

std::string CertificateChain::intermediatePem() const { return pemOf(shown_.others.front().get()); }

}  // namespace zln
