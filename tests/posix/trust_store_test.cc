#include "platform/posix/trust_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509_vfy.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/environment_variable.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_certificates.h"

namespace zln {
namespace {

using testing::Each;
using testing::IsNull;
using testing::NotNull;

using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

// What OpenSSL says of the certificate to one who trusts the authorities; X509_V_OK is good.
int verdict(const Trust& trust, X509* certificate) {
  const std::unique_ptr<X509_STORE_CTX, decltype(&X509_STORE_CTX_free)> context(
      X509_STORE_CTX_new(), X509_STORE_CTX_free);
  X509_STORE_CTX_init(context.get(), trust.authorities.get(), certificate, nullptr);
  X509_verify_cert(context.get());
  return X509_STORE_CTX_get_error(context.get());
}

int verdict(const Trust& trust, const TestAuthority& authority) {
  return verdict(trust, authority.issue(CertificateFlaw::kNone).certificate.get());
}

Certificate readCertificate(const std::string& path) {
  const std::unique_ptr<BIO, decltype(&BIO_free)> file(BIO_new_file(path.c_str(), "rb"), BIO_free);
  X509* const read = file ? PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr) : nullptr;
  return {read, X509_free};
}

class TrustStoreTest : public testing::Test {
 protected:
  TrustStoreTest() { std::filesystem::create_directory(hashed); }

  void write(const std::string& text) { std::ofstream(file, std::ios::binary) << text; }

  // Puts the authority's certificate where one with its name is looked for.
  void putInFolder(const TestAuthority& authority, int number) {
    const std::string path = folder.path() + "/new";
    std::ofstream(path, std::ios::binary) << authority.certificatePem();
    const Certificate certificate = readCertificate(path);
    char name[32];
    std::snprintf(name, sizeof name, "/%08lx.%d", X509_subject_name_hash(certificate.get()),
                  number);
    std::filesystem::rename(path, hashed + name);
  }

  int verdict(const TestAuthority& authority) { return zln::verdict(*store.now(), authority); }

  TemporaryFolder folder;
  const std::string file = folder.path() + "/authorities.pem";
  const std::string hashed = folder.path() + "/hashed";
  EnvironmentVariable namedFile{"SSL_CERT_FILE", file};
  EnvironmentVariable namedFolders{"SSL_CERT_DIR", hashed};
  TestAuthority first;
  TestAuthority second;
  TestAuthority third;
  TrustStore store;
};

TEST_F(TrustStoreTest, TrustsEachAuthorityOfTheFileAndNoOther) {
  write(first.certificatePem() + "A line between two.\n" + second.certificatePem());

  EXPECT_EQ(X509_V_OK, verdict(first));
  EXPECT_EQ(X509_V_OK, verdict(second));
  EXPECT_EQ(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, verdict(third));
}

TEST_F(TrustStoreTest, TrustsTheAuthoritiesOfFoldersBesideThoseOfTheFile) {
  const TemporaryFolder empty;
  write(first.certificatePem());
  namedFolders.set(empty.path() + ":" + hashed);
  putInFolder(second, 0);

  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(X509_V_OK, verdict(first));
    EXPECT_EQ(X509_V_OK, verdict(second));
    EXPECT_EQ(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, verdict(third));
  }
}

TEST_F(TrustStoreTest, FoldersAloneAreEnough) {
  namedFile.set("");
  putInFolder(TestAuthority("Authority of two keys"), 0);
  const TestAuthority renewed("Authority of two keys");
  putInFolder(renewed, 1);

  EXPECT_EQ(X509_V_OK, verdict(renewed));
  EXPECT_EQ(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, verdict(first));
}

TEST_F(TrustStoreTest, WithoutVariablesTheSystemsCount) {
  namedFile.set("");
  namedFolders.set("");
  const Certificate known = readCertificate(curl_version_info(CURLVERSION_NOW)->cainfo);
  if (!known) GTEST_SKIP() << "this system has no authorities";

  EXPECT_EQ(X509_V_OK, zln::verdict(*store.now(), known.get()));
  EXPECT_EQ(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, verdict(first));
}

TEST_F(TrustStoreTest, FindsTheRightOneOfTwoWithTheSameName) {
  const TestAuthority old("Authority of two keys");
  const TestAuthority renewed("Authority of two keys");
  write(old.certificatePem() + renewed.certificatePem());

  EXPECT_EQ(X509_V_OK, verdict(renewed));
  EXPECT_EQ(X509_V_OK, verdict(old));
}

TEST_F(TrustStoreTest, TakesOneWithTheSameNameForAnImpostor) {
  const TestAuthority real("Authority");
  const TestAuthority impostor("Authority");
  write(real.certificatePem());

  EXPECT_EQ(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, verdict(impostor));
}

TEST_F(TrustStoreTest, IsNullWithoutACertificateInTheFile) {
  putInFolder(first, 0);
  for (const char* text : {"", "no certificate", "-----BEGIN CERTIFICATE-----\n",
                           "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n"}) {
    write(text);
    EXPECT_THAT(TrustStore().now(), IsNull()) << text;
  }
  namedFile.set(folder.path() + "/nothing");
  EXPECT_THAT(store.now(), IsNull());
  namedFile.set(folder.path());
  EXPECT_THAT(store.now(), IsNull());
}

TEST_F(TrustStoreTest, ReadsAFileAgainThatHasAnotherTimeOrSize) {
  using namespace std::chrono_literals;
  const auto time = std::filesystem::file_time_type::clock::now();
  const auto writeAt = [&](const TestAuthority& authority, std::size_t size, auto changed) {
    const std::string pem = authority.certificatePem();
    write(pem + std::string(size - pem.size(), '\n'));
    std::filesystem::last_write_time(file, changed);
  };
  writeAt(first, 4000, time);
  EXPECT_EQ(X509_V_OK, verdict(first));

  writeAt(second, 4000, time + 1s);
  EXPECT_EQ(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, verdict(first));
  EXPECT_EQ(X509_V_OK, verdict(second));

  writeAt(third, 4001, time + 1s);
  EXPECT_EQ(X509_V_OK, verdict(third));
}

TEST_F(TrustStoreTest, IsTheSameAsLongAsNothingChanges) {
  write(first.certificatePem());
  const auto before = store.now();

  EXPECT_EQ(before, store.now());
}

// Each change, and that sessions do not outlive it.
TEST_F(TrustStoreTest, AChangeOfFileOrFolderMakesNewTrust) {
  write(first.certificatePem());
  auto before = store.now();
  const auto expectNew = [&] {
    const auto after = store.now();
    ASSERT_THAT(after, NotNull());
    EXPECT_NE(before->sessions, after->sessions);
    before = after;
  };

  write(first.certificatePem() + second.certificatePem());
  expectNew();
  putInFolder(third, 0);
  expectNew();
  EXPECT_EQ(X509_V_OK, verdict(third));
  std::filesystem::remove_all(hashed);
  expectNew();
  EXPECT_EQ(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, verdict(third));
  namedFolders.set(folder.path());
  expectNew();
  const TemporaryFolder other;
  std::filesystem::copy(file, other.path() + "/copy.pem");
  namedFile.set(other.path() + "/copy.pem");
  expectNew();
}

TEST_F(TrustStoreTest, AFileThatIsGoneGoesOnToCountWithoutSessions) {
  write(first.certificatePem());
  const auto before = store.now();

  std::filesystem::remove(file);

  EXPECT_EQ(X509_V_OK, verdict(first));
  EXPECT_NE(before->sessions, store.now()->sessions);
  EXPECT_EQ(store.now(), store.now());
  write(second.certificatePem());
  EXPECT_EQ(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, verdict(first));
}

TEST_F(TrustStoreTest, ForgetsTheSessionsItGivesAndNoLaterOnes) {
  write(first.certificatePem());
  const auto before = store.now();

  store.forgetSessions(before);
  const auto after = store.now();
  store.forgetSessions(before);

  EXPECT_NE(before->sessions, after->sessions);
  EXPECT_EQ(before->authorities, after->authorities);
  EXPECT_EQ(after, store.now());
}

TEST_F(TrustStoreTest, TrustOutlivesTheStore) {
  write(first.certificatePem());
  const auto trust = TrustStore().now();

  EXPECT_EQ(X509_V_OK, zln::verdict(*trust, first));
}

TEST_F(TrustStoreTest, LeavesNoErrorBehind) {
  write("-----BEGIN CERTIFICATE-----\nAAAA\n");

  store.now();

  EXPECT_EQ(0U, ERR_peek_error());
}

TEST_F(TrustStoreTest, ServesManyThreads) {
  write(first.certificatePem());
  putInFolder(second, 0);
  constexpr int kThreads = 4;
  std::vector<int> verdicts(kThreads, -1);
  std::vector<std::thread> threads;

  for (int& said : verdicts) {
    threads.emplace_back([&] { said = verdict(second); });
  }
  for (std::thread& thread : threads) thread.join();

  EXPECT_THAT(verdicts, Each(X509_V_OK));
}

}  // namespace
}  // namespace zln
