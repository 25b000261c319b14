#include "platform/posix/trust_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509_vfy.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/temporary_folder.h"
#include "tests/support/test_certificates.h"

namespace zln {
namespace {

using testing::Each;
using testing::IsNull;
using testing::NotNull;

class TrustStoreTest : public testing::Test {
 protected:
  void write(const std::string& text) { std::ofstream(file, std::ios::binary) << text; }

  // The bytes of a certificate between other lines than those of a certificate.
  static std::string labelled(const std::string& pem, const std::string& label) {
    std::string text = pem;
    for (std::size_t at = 0; (at = text.find("CERTIFICATE", at)) != std::string::npos;) {
      text.replace(at, std::string("CERTIFICATE").size(), label);
      at += label.size();
    }
    return text;
  }

  // What OpenSSL says of the certificate to one who trusts the authorities; X509_V_OK is good.
  static int verdict(const TrustStore::Authorities& authorities, const Identity& server) {
    const std::unique_ptr<X509_STORE_CTX, decltype(&X509_STORE_CTX_free)> context(
        X509_STORE_CTX_new(), X509_STORE_CTX_free);
    X509_STORE_CTX_init(context.get(), authorities.get(), server.certificate.get(), nullptr);
    X509_verify_cert(context.get());
    return X509_STORE_CTX_get_error(context.get());
  }

  int verdict(const TestAuthority& authority) {
    return verdict(store.of(file), authority.issue(CertificateFlaw::kNone));
  }

  TemporaryFolder folder;
  const std::string file = folder.path() + "/authorities.pem";
  TestAuthority first;
  TestAuthority second;
  TestAuthority third;
  TrustStore store;
};

TEST_F(TrustStoreTest, TrustsEachAuthorityOfTheFileAndNoOther) {
  write(first.certificatePem() + "A line between two.\n" + second.certificatePem());

  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(X509_V_OK, verdict(first));
    EXPECT_EQ(X509_V_OK, verdict(second));
    EXPECT_EQ(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, verdict(third));
  }
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

TEST_F(TrustStoreTest, FindsANameThatIsWrittenInAnotherWay) {
  write(TestAuthority("AUTHORITY  of Spaces").certificatePem());
  const TrustStore::Authorities authorities = store.of(file);
  const std::unique_ptr<X509_NAME, decltype(&X509_NAME_free)> name(X509_NAME_new(), X509_NAME_free);
  X509_NAME_add_entry_by_txt(name.get(), "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>("authority of spaces"), -1, -1,
                             0);
  const std::unique_ptr<X509_STORE_CTX, decltype(&X509_STORE_CTX_free)> context(
      X509_STORE_CTX_new(), X509_STORE_CTX_free);
  X509_STORE_CTX_init(context.get(), authorities.get(), nullptr, nullptr);

  const std::unique_ptr<X509_OBJECT, decltype(&X509_OBJECT_free)> found(
      X509_STORE_CTX_get_obj_by_subject(context.get(), X509_LU_X509, name.get()), X509_OBJECT_free);

  EXPECT_THAT(found, NotNull());
}

TEST_F(TrustStoreTest, TakesTheOlderAndTheTrustedForm) {
  write(labelled(first.certificatePem(), "X509 CERTIFICATE") +
        labelled(second.certificatePem(), "TRUSTED CERTIFICATE"));

  EXPECT_EQ(X509_V_OK, verdict(first));
  EXPECT_EQ(X509_V_OK, verdict(second));
}

TEST_F(TrustStoreTest, PassesOverWhatIsNoCertificate) {
  write(labelled(first.certificatePem(), "X509 CRL") + "-----BEGIN CERTIFICATE-----\nAAAA\n" +
        "-----END CERTIFICATE-----\n" + second.certificatePem());

  EXPECT_EQ(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, verdict(first));
  EXPECT_EQ(X509_V_OK, verdict(second));
}

TEST_F(TrustStoreTest, IsNullWithoutACertificate) {
  for (const char* text : {"", "no certificate", "-----BEGIN CERTIFICATE-----\n",
                           "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n"}) {
    write(text);
    EXPECT_THAT(TrustStore().of(file), IsNull()) << text;
  }
  EXPECT_THAT(store.of(folder.path() + "/nothing"), IsNull());
  EXPECT_THAT(store.of(folder.path()), IsNull());
}

// Every beginning and every damaged byte of a certificate: nothing may be read beyond its end.
TEST_F(TrustStoreTest, ReadsDamagedCertificatesWithoutHarm) {
  const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), BIO_free);
  unsigned char* bytes = nullptr;
  const Identity server = first.issue(CertificateFlaw::kNone);
  const int length = i2d_X509(server.certificate.get(), &bytes);
  ASSERT_GT(length, 0);
  for (int at = 0; at < length; ++at) {
    PEM_write_bio(memory.get(), PEM_STRING_X509, "", bytes, at);
    std::string damaged(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
    damaged[static_cast<std::size_t>(at)] = static_cast<char>(0xff);
    PEM_write_bio(memory.get(), PEM_STRING_X509, "",
                  reinterpret_cast<const unsigned char*>(damaged.data()), length);
  }
  OPENSSL_free(bytes);
  char* text = nullptr;
  const long size = BIO_get_mem_data(memory.get(), &text);
  write(std::string(text, static_cast<std::size_t>(size)) + second.certificatePem());

  EXPECT_NE(X509_V_OK, verdict(first));
  EXPECT_EQ(X509_V_OK, verdict(second));
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

TEST_F(TrustStoreTest, AuthoritiesOutliveTheStore) {
  write(first.certificatePem());
  const TrustStore::Authorities authorities = TrustStore().of(file);

  EXPECT_EQ(X509_V_OK, verdict(authorities, first.issue(CertificateFlaw::kNone)));
}

TEST_F(TrustStoreTest, LeavesNoErrorBehind) {
  write("-----BEGIN CERTIFICATE-----\nAAAA\n");

  store.of(file);

  EXPECT_EQ(0U, ERR_peek_error());
}

TEST_F(TrustStoreTest, ServesManyThreads) {
  write(first.certificatePem() + second.certificatePem());
  const Identity server = second.issue(CertificateFlaw::kNone);
  constexpr int kThreads = 4;
  std::vector<int> verdicts(kThreads, -1);
  std::vector<std::thread> threads;

  for (int& said : verdicts) {
    threads.emplace_back([&] { said = verdict(store.of(file), server); });
  }
  for (std::thread& thread : threads) thread.join();

  EXPECT_THAT(verdicts, Each(X509_V_OK));
}

}  // namespace
}  // namespace zln
