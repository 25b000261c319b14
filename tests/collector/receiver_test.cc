#include "collector/receiver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/support/temporary_folder.h"

namespace zln::collector {
namespace {

using nlohmann::json;
using testing::HasSubstr;

constexpr char kJson[] = "application/json";

// A receiver on a free port, served by a thread of its own.
class ReceiverTest : public testing::Test {
 protected:
  ReceiverTest()
      : certificate_(certificateFiles(folder_.path())),
        receiver_(certificate_, reportsPath(), rules(), SettingsFile(settingsPath())),
        port_(receiver_.bind(0)),
        serving_([this] { receiver_.serve(); }) {
    while (!receiver_.isServing()) std::this_thread::yield();
  }

  ~ReceiverTest() override {
    receiver_.stop();
    serving_.join();
  }

  static ReplyRules rules() {
    ReplyRules rules;
    rules.reject("Grumble");
    return rules;
  }

  // Holds settings from the first call on.
  std::string settingsPath() const {
    const std::string path = folder_.path() + "/settings.json";
    if (!std::filesystem::exists(path)) setSettings(path, R"({"key":3600})");
    return path;
  }

  static void setSettings(const std::string& path, const char* settings) {
    std::ofstream(path) << settings;
  }

  std::string reportsPath() const { return folder_.path() + "/reports.jsonl"; }

  std::string reports() const {
    std::ifstream file(reportsPath());
    return std::string(std::istreambuf_iterator<char>(file), {});
  }

  // A client that trusts one authority and no other.
  std::unique_ptr<httplib::SSLClient> clientTrusting(const CertificateFiles& certificate,
                                                     const std::string& host) const {
    auto client = std::make_unique<httplib::SSLClient>(host, port_);
    client->set_ca_cert_path(certificate.authority.c_str());
    client->enable_server_certificate_verification(true);
    return client;
  }

  std::unique_ptr<httplib::SSLClient> client(const std::string& host = "127.0.0.1") const {
    return clientTrusting(certificate_, host);
  }

  int statusOf(const httplib::Headers& headers, const std::string& body) const {
    const auto result = client()->Post("/session", headers, body, kJson);
    return result ? result->status : 0;
  }

  std::string answerTo(const std::string& path, const std::string& body) const {
    const auto result = client()->Post(path, body, kJson);
    return result ? result->body : "no answer: " + httplib::to_string(result.error());
  }

  const TemporaryFolder folder_;
  const CertificateFiles certificate_;
  Receiver receiver_;
  const int port_;
  std::thread serving_;
};

TEST_F(ReceiverTest, TakesAReportAndKeepsIt) {
  EXPECT_EQ(R"({"success":true})", answerTo("/session", R"({ "network": "Sunrise" })"));

  EXPECT_EQ("{\"network\":\"Sunrise\"}\n", reports());
}

TEST_F(ReceiverTest, KeepsARefusedReportToo) {
  EXPECT_THAT(answerTo("/session", R"({"network":"Grumble"})"),
              HasSubstr(R"("errorIsPermanent":true)"));

  EXPECT_EQ("{\"network\":\"Grumble\"}\n", reports());
}

TEST_F(ReceiverTest, AnswersUnderBothOfItsNames) {
  EXPECT_TRUE(client("localhost")->Post("/session", "{}", kJson));
  EXPECT_TRUE(client("127.0.0.1")->Post("/session", "{}", kJson));
}

TEST_F(ReceiverTest, IsNotTrustedWithAnotherAuthority) {
  const TemporaryFolder other;

  const auto stranger = clientTrusting(certificateFiles(other.path()), "127.0.0.1");

  EXPECT_FALSE(stranger->Post("/session", "{}", kJson));
}

TEST_F(ReceiverTest, AnswersARequestForSettings) {
  EXPECT_EQ(R"({"key":3600})", answerTo("/config", "{}"));
  EXPECT_EQ(R"({"key":3600})", answerTo("/config", "no JSON"));
}

TEST_F(ReceiverTest, AnswersWithTheSettingsOfTheMoment) {
  setSettings(settingsPath(), R"({"key":-1})");

  EXPECT_EQ(R"({"key":-1})", answerTo("/config", "{}"));
}

TEST_F(ReceiverTest, RefusesWhatIsNoObjectForGood) {
  const std::string refusal =
      R"({"error":"the body is no JSON object","errorIsPermanent":true,"success":false})";

  EXPECT_EQ(refusal, answerTo("/session", ""));
  EXPECT_EQ(refusal, answerTo("/session", "[1]"));
  EXPECT_EQ(refusal, answerTo("/session", R"({"key":)"));
  EXPECT_EQ(refusal, answerTo("/session", R"({"key":)" + std::string(200000, '[') +
                                              std::string(200000, ']') + "}"));
  EXPECT_EQ("", reports());
}

TEST_F(ReceiverTest, TakesABodyOfAMebibyteAndNoLargerOne) {
  const std::string fitting = R"({"key":")" + std::string(1048576 - 10, 'a') + R"("})";

  EXPECT_EQ(200, statusOf({}, fitting));
  EXPECT_EQ(413, statusOf({}, fitting + " "));
}

TEST_F(ReceiverTest, RefusesBodiesThatDoNotSayTheirSize) {
  EXPECT_EQ(415, statusOf({{"Content-Encoding", "gzip"}}, "{}"));
  EXPECT_EQ(411, statusOf({{"Transfer-Encoding", "chunked"}}, "2\r\n{}\r\n0\r\n\r\n"));
  EXPECT_EQ("", reports());
}

TEST_F(ReceiverTest, KnowsNoOtherPath) {
  const auto result = client()->Post("/other", "{}", kJson);

  ASSERT_TRUE(result);
  EXPECT_EQ(404, result->status);
}

TEST_F(ReceiverTest, DoesNotShareItsPort) {
  const TemporaryFolder other;
  Receiver second(certificate_, other.path() + "/reports.jsonl", {}, {});

  EXPECT_THROW(second.bind(port_), std::runtime_error);
}

}  // namespace
}  // namespace zln::collector
