#include "collector/certificates.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "tests/support/temporary_folder.h"

namespace zln::collector {
namespace {

using std::filesystem::perms;

std::string contentOf(const std::filesystem::path& path) {
  std::ifstream file(path);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

class CertificatesTest : public testing::Test {
 protected:
  const TemporaryFolder folder_;
};

TEST_F(CertificatesTest, KeepThePrivateKeyFromOthers) {
  const CertificateFiles files = certificateFiles(folder_.path());

  EXPECT_EQ(perms::owner_read | perms::owner_write,
            std::filesystem::status(files.key).permissions());
}

TEST_F(CertificatesTest, StayTheSameOnceMade) {
  const CertificateFiles files = certificateFiles(folder_.path());
  const std::string authority = contentOf(files.authority);

  certificateFiles(folder_.path());

  EXPECT_NE("", authority);
  EXPECT_EQ(authority, contentOf(files.authority));
}

TEST_F(CertificatesTest, AreMadeAnewWhenOneIsMissing) {
  const CertificateFiles files = certificateFiles(folder_.path());
  const std::string authority = contentOf(files.authority);
  std::filesystem::remove(files.certificate);

  certificateFiles(folder_.path());

  EXPECT_NE(authority, contentOf(files.authority));
  EXPECT_NE("", contentOf(files.certificate));
}

TEST_F(CertificatesTest, AreMadeAnewWhenTheKeyIsAnother) {
  const TemporaryFolder other;
  const CertificateFiles files = certificateFiles(folder_.path());
  const std::string certificate = contentOf(files.certificate);
  std::filesystem::copy_file(certificateFiles(other.path()).key, files.key,
                             std::filesystem::copy_options::overwrite_existing);

  certificateFiles(folder_.path());

  EXPECT_NE(certificate, contentOf(files.certificate));
}

TEST_F(CertificatesTest, AreMadeAnewWhenTheAuthorityIsAnother) {
  const TemporaryFolder other;
  const CertificateFiles files = certificateFiles(folder_.path());
  const std::string certificate = contentOf(files.certificate);
  std::filesystem::copy_file(certificateFiles(other.path()).authority, files.authority,
                             std::filesystem::copy_options::overwrite_existing);

  certificateFiles(folder_.path());

  EXPECT_NE(certificate, contentOf(files.certificate));
}

TEST_F(CertificatesTest, AreMadeAnewWhenAFlawedOneIsMissing) {
  const CertificateFiles files = certificateFiles(folder_.path());
  const std::string authority = contentOf(files.authority);
  std::filesystem::remove(files.wrongHost);

  certificateFiles(folder_.path());

  EXPECT_NE(authority, contentOf(files.authority));
  EXPECT_NE("", contentOf(files.wrongHost));
}

TEST_F(CertificatesTest, AreMadeAnewWhenAHostIsMissing) {
  const CertificateFiles files = certificateFiles(folder_.path(), {"config.invalid", "10.0.0.1"});
  const std::string authority = contentOf(files.authority);

  certificateFiles(folder_.path());
  certificateFiles(folder_.path(), {"10.0.0.1", "127.0.0.1", "::1", "localhost"});
  EXPECT_EQ(authority, contentOf(files.authority));

  certificateFiles(folder_.path(), {"session.invalid"});
  EXPECT_NE(authority, contentOf(files.authority));
}

TEST_F(CertificatesTest, FailWhereNothingCanBeWritten) {
  EXPECT_THROW(certificateFiles(folder_.path() + "/missing"), std::runtime_error);
}

}  // namespace
}  // namespace zln::collector
