#include "collector/game_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <future>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>

#include "collector/database.h"
#include "collector/listening_port.h"
#include "tests/collector/running_collector.h"

namespace zln::collector {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Outcome = Answer::Outcome;

constexpr char kEvent[] = R"({"adEventId":"0D9AF0A5-2C9A-4F0B-8F4D-6E4C3E0E5F11"})";

TEST(GameServerTest, TakesAReportAndKeepsIt) {
  RunningCollector collector;

  EXPECT_EQ(kSuccess, collector.answerTo("/session", adAttempt()));

  ASSERT_THAT(collector.rows(), SizeIs(1));
  EXPECT_EQ(adAttempt(), collector.rows()[0].body);
  EXPECT_EQ(ReportKind::kAdAttempt, collector.rows()[0].kind);
  EXPECT_EQ(Verdict::kValid, collector.rows()[0].verdict);
  EXPECT_EQ(Outcome::kAccepted, collector.rows()[0].answer.outcome);
}

TEST(GameServerTest, TakesInvalidReportsLikeOthers) {
  RunningCollector collector;

  EXPECT_EQ(kSuccess, collector.answerTo("/session", "no JSON"));
  EXPECT_EQ(kSuccess, collector.answerTo("/session", adAttempt(R"({"fill":"yes"})")));

  ASSERT_THAT(collector.rows(), SizeIs(2));
  EXPECT_EQ(Verdict::kInvalid, collector.rows()[0].verdict);
  EXPECT_EQ(Verdict::kInvalid, collector.rows()[1].verdict);
}

TEST(GameServerTest, RefusesInvalidReportsForGoodWhenToldTo) {
  RunningCollector collector({.rejectInvalid = true});

  EXPECT_THAT(collector.answerTo("/session", "no JSON"), HasSubstr(R"("errorIsPermanent":true)"));
  EXPECT_EQ(kSuccess, collector.answerTo("/session", adAttempt(kEvent)));
  EXPECT_EQ(kSuccess, collector.answerTo("/session", adAttempt(kEvent)));

  ASSERT_THAT(collector.rows(), SizeIs(3));
  EXPECT_EQ(Outcome::kDropped, collector.rows()[0].answer.outcome);
  EXPECT_EQ(Verdict::kDuplicate, collector.rows()[2].verdict);
}

TEST(GameServerTest, AnswersUnderItsNames) {
  RunningCollector collector;

  EXPECT_TRUE(collector.game("localhost")->Post("/session", "{}", "application/json"));
  EXPECT_TRUE(collector.game("127.0.0.1")->Post("/session", "{}", "application/json"));
}

TEST(GameServerTest, IsNotTrustedWithAnotherAuthority) {
  RunningCollector collector;
  const RunningCollector other;
  const auto client = collector.game();
  client->set_ca_cert_path(other.certificates().authority.c_str());

  EXPECT_FALSE(client->Post("/session", "{}", "application/json"));
}

TEST(GameServerTest, AnswersARequestForSettingsWithThoseOfTheMoment) {
  RunningCollector collector;

  EXPECT_EQ("{}", collector.answerTo("/config", "{}"));
  collector.askPage({"PUT", "/api/settings", R"({"values":{"key":-1}})"});
  EXPECT_EQ(R"({"key":-1})", collector.answerTo("/config", "no JSON"));
}

TEST(GameServerTest, TakesABodyOfAMebibyteAndNoLargerOne) {
  RunningCollector collector;
  const std::string fitting = R"({"key":")" + std::string(1048576 - 10, 'a') + R"("})";

  EXPECT_EQ(200, collector.statusOf({}, fitting));
  EXPECT_EQ(413, collector.statusOf({}, fitting + " "));
}

TEST(GameServerTest, RefusesBodiesThatDoNotSayTheirSize) {
  RunningCollector collector;

  EXPECT_EQ(415, collector.statusOf({{"Content-Encoding", "gzip"}}, "{}"));
  EXPECT_EQ(411, collector.statusOf({{"Transfer-Encoding", "chunked"}}, "2\r\n{}\r\n0\r\n\r\n"));
  EXPECT_THAT(collector.rows(), IsEmpty());
}

TEST(GameServerTest, KnowsNoOtherPath) {
  RunningCollector collector;

  const auto result = collector.game()->Post("/other", "{}", "application/json");

  ASSERT_TRUE(result);
  EXPECT_EQ(404, result->status);
}

TEST(GameServerTest, EndsAConnectionWithARequestThatItRefuses) {
  RunningCollector collector;
  const auto client = collector.game();
  client->set_keep_alive(true);
  EXPECT_TRUE(client->Post("/session", adAttempt(), "application/json"));

  const auto result = client->Post("/other", "{}", "application/json");

  ASSERT_TRUE(result);
  EXPECT_EQ(404, result->status);
  EXPECT_EQ("close", result->get_header_value("Connection"));
}

TEST(GameServerTest, AnswersAReportWhenItIsInTheFile) {
  RunningCollector collector;
  std::future<std::string> answer;
  {
    Database other(collector.database());
    Transaction lock(other, /*writes=*/true);
    answer =
        std::async(std::launch::async, [&] { return collector.answerTo("/session", adAttempt()); });
    EXPECT_EQ(std::future_status::timeout, answer.wait_for(std::chrono::milliseconds(200)));
  }

  EXPECT_EQ(kSuccess, answer.get());
}

TEST(GameServerTest, AnswersSeveralRequestsOnOneConnection) {
  RunningCollector collector;
  const auto client = collector.game();
  client->set_keep_alive(true);

  for (int i = 0; i < 4; ++i) {
    EXPECT_TRUE(client->Post("/session", adAttempt(), "application/json")) << "request " << i;
  }
}

TEST(GameServerTest, HasAPortForEachTypeWhenToldTo) {
  RunningCollector collector({.separatePorts = true});
  std::set<int> ports;

  for (const std::string type : {"session-first", "session-start", "session-stop", "ad-attempt",
                                 "ad-zone-attempt", "config"}) {
    ports.insert(collector.gamePort(type));
    EXPECT_TRUE(collector.game("localhost", type)->Post("/session", "{}", "application/json"));
  }

  EXPECT_THAT(ports, SizeIs(6));
}

// Six free ports, one after the other, are a matter of trying.
std::unique_ptr<RunningCollector> collectorFrom(int port) {
  try {
    return std::make_unique<RunningCollector>(
        CollectorWish{.separatePorts = true, .firstPort = port});
  } catch (const std::runtime_error&) {
    return nullptr;
  }
}

TEST(GameServerTest, CountsThePortsOfTheTypesFromTheFirst) {
  int first = 21000;
  std::unique_ptr<RunningCollector> collector;
  while (!collector && first < 30000) collector = collectorFrom(first += 10);
  ASSERT_TRUE(collector);

  EXPECT_EQ(first, collector->gamePort("session-first"));
  EXPECT_EQ(first + 1, collector->gamePort("session-start"));
  EXPECT_EQ(first + 2, collector->gamePort("session-stop"));
  EXPECT_EQ(first + 3, collector->gamePort("ad-attempt"));
  EXPECT_EQ(first + 4, collector->gamePort("ad-zone-attempt"));
  EXPECT_EQ(first + 5, collector->gamePort("config"));
}

TEST(GameServerTest, DoesNotShareItsPort) {
  RunningCollector collector;
  const int port = collector.gamePort();

  try {
    const ListeningPort second("127.0.0.1", port);
    FAIL() << "a second server has the port";
  } catch (const std::runtime_error& failure) {
    EXPECT_EQ(
        "cannot listen on port " + std::to_string(port) + " of 127.0.0.1: Address already in use",
        std::string(failure.what()));
  }
}

TEST(GameServerTest, ListensOnNumericAddressesOnly) {
  EXPECT_THROW(ListeningPort("localhost", 0), std::runtime_error);
}

}  // namespace
}  // namespace zln::collector
