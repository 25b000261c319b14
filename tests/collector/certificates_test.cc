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

TEST_F(CertificatesTest, AreMadeAnewWhenOneIsMissingOrAnothers) {
  const TemporaryFolder other;
  const CertificateFiles others = certificateFiles(other.path());
  const CertificateFiles files = certificateFiles(folder_.path());
  const struct {
    std::filesystem::path file;
    std::filesystem::path replacement;  // None where the file is removed.
  } kCases[] = {{files.certificate, {}},
                {files.wrongHost, {}},
                {files.key, others.key},
                {files.authority, others.authority}};
  for (const auto& [file, replacement] : kCases) {
    SCOPED_TRACE(file.string());
    const std::string authority = contentOf(files.authority);
    const std::string certificate = contentOf(files.certificate);
    std::filesystem::remove(file);
    if (!replacement.empty()) std::filesystem::copy_file(replacement, file);

    certificateFiles(folder_.path());

    EXPECT_NE(authority, contentOf(files.authority));
    EXPECT_NE(certificate, contentOf(files.certificate));
    EXPECT_NE("", contentOf(file));
  }
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
