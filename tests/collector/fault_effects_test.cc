#include "collector/fault_effects.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <openssl/x509_vfy.h>

#include <chrono>
#include <future>
#include <string>

#include "collector/fault_list.h"
#include "tests/collector/running_collector.h"

namespace zln::collector {
namespace {

using std::chrono::duration;
using std::chrono::steady_clock;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using Outcome = Answer::Outcome;

constexpr char kPutOff[] = R"({"success":false})";
constexpr char kNoAnswer[] = "no answer: ";
// What is to be over in a moment is so within this, also under a sanitizer.

class FaultEffectsTest : public testing::Test {
 protected:
  std::string answer() const { return collector_.answerTo("/session", adAttempt()); }

  httplib::Result response() const {
    return collector_.game()->Post("/session", adAttempt(), "application/json");
  }

  Answer lastAnswer() { return collector_.rows().back().answer; }

  RunningCollector collector_;
};

TEST_F(FaultEffectsTest, TemporaryPutsAReportOff) {
  const int id = collector_.addFault(R"({"effect":"temporary","times":1})");

  EXPECT_EQ(kPutOff, answer());
  EXPECT_EQ(Outcome::kRetry, lastAnswer().outcome);
  EXPECT_EQ(id, lastAnswer().fault);
  EXPECT_EQ(kSuccess, answer());
}

TEST_F(FaultEffectsTest, PermanentRefusesAReportForGood) {
  collector_.addFault(R"({"effect":"permanent","error":"no room"})");

  EXPECT_EQ(R"({"error":"no room","errorIsPermanent":true,"success":false})", answer());
  EXPECT_EQ(Outcome::kDropped, lastAnswer().outcome);
}

TEST_F(FaultEffectsTest, ActsOnMatchingReportsAlone) {
  collector_.addFault(R"({"effect":"temporary","match":{"network":"Flicker"}})");

  EXPECT_EQ(kSuccess, answer());
  EXPECT_EQ(kPutOff, collector_.answerTo("/session", adAttempt(R"({"network":"Flicker"})")));
  EXPECT_EQ(kSuccess, collector_.answerTo("/session", "no JSON"));
}

TEST_F(FaultEffectsTest, ActsOnItsTypesAlone) {
  collector_.addFault(R"({"effect":"garbage","types":["config"]})");

  EXPECT_EQ(kSuccess, answer());
  EXPECT_EQ("<html>no JSON at all", collector_.answerTo("/config", "{}"));
}

TEST_F(FaultEffectsTest, StatusKeepsTheBody) {
  collector_.addFault(R"({"effect":"status","status":503})");

  const auto result = response();

  ASSERT_TRUE(result);
  EXPECT_EQ(503, result->status);
  EXPECT_EQ(kSuccess, result->body);
  EXPECT_EQ(Outcome::kAccepted, lastAnswer().outcome);
  EXPECT_EQ(503, lastAnswer().status);
}

TEST_F(FaultEffectsTest, AStatusWithoutBodyHasNone) {
  collector_.addFault(R"({"effect":"status","status":204})");

  const auto result = response();

  ASSERT_TRUE(result);
  EXPECT_EQ(204, result->status);
  EXPECT_EQ("", result->body);
  EXPECT_EQ(Outcome::kOther, lastAnswer().outcome);
}

TEST_F(FaultEffectsTest, EmptyGarbageAndArrayAreBodiesThatNobodyUnderstands) {
  collector_.addFault(R"({"effect":"empty","times":1})");
  EXPECT_EQ("", answer());
  EXPECT_EQ(Outcome::kOther, lastAnswer().outcome);

  collector_.addFault(R"({"effect":"garbage","times":1,"status":500})");
  EXPECT_EQ("<html>no JSON at all", answer());
  EXPECT_EQ(500, lastAnswer().status);

  collector_.addFault(R"({"effect":"array","times":1})");
  EXPECT_EQ(R"([{"success":true}])", answer());
}

TEST_F(FaultEffectsTest, HugeIsOneLongValidBody) {
  collector_.addFault(R"({"effect":"huge"})");

  const std::string body = answer();

  EXPECT_EQ(32u * 1024 * 1024, body.size());
  EXPECT_THAT(body, StartsWith(R"({"success":true,"padding":"aaa)"));
  EXPECT_TRUE(body.ends_with("aaa\"}"));
}

TEST_F(FaultEffectsTest, DelayAnswersLate) {
  collector_.addFault(R"({"effect":"delay","seconds":0.2})");
  const auto begin = steady_clock::now();

  EXPECT_EQ(kSuccess, answer());

  EXPECT_LE(std::chrono::milliseconds(200), steady_clock::now() - begin);
}

TEST_F(FaultEffectsTest, ADelayEndsWhenItsFaultIsRemoved) {
  const int id = collector_.addFault(R"({"effect":"delay","seconds":3000})");
  auto held = std::async(std::launch::async, [this] { return answer(); });
  collector_.waitForHits(id);

  collector_.parts().faults.remove(id);

  EXPECT_EQ(kSuccess, held.get());
}

TEST_F(FaultEffectsTest, OtherEffectsCanBeHeldToo) {
  const int refusal = collector_.addFault(R"({"effect":"temporary","seconds":3000})");
  auto held = std::async(std::launch::async, [this] { return answer(); });
  collector_.waitForHits(refusal);
  collector_.parts().faults.remove(refusal);
  EXPECT_EQ(kPutOff, held.get());

  const int cut = collector_.addFault(R"({"effect":"cut-during","seconds":3000})");
  auto lost = std::async(std::launch::async, [this] { return answer(); });
  collector_.waitForHits(cut);
  collector_.parts().faults.remove(cut);
  EXPECT_THAT(lost.get(), StartsWith(kNoAnswer));
  EXPECT_THAT(collector_.rows(), SizeIs(1));
}

TEST_F(FaultEffectsTest, StallStandsStillInTheMiddleOfTheBody) {
  const int id = collector_.addFault(R"({"effect":"stall","seconds":3000})");
  std::promise<std::string> begun;
  std::string body;
  auto held = std::async(std::launch::async, [&] {
    httplib::Request request;
    request.method = "POST";
    request.path = "/session";
    request.body = adAttempt();
    request.content_receiver = [&](const char* piece, size_t size, uint64_t, uint64_t) {
      if (body.empty()) begun.set_value(std::string(piece, size));
      body.append(piece, size);
      return true;
    };
    return static_cast<bool>(collector_.game()->send(request));
  });

  EXPECT_EQ(R"({"succes)", begun.get_future().get());
  collector_.parts().faults.remove(id);

  EXPECT_TRUE(held.get());
  EXPECT_EQ(kSuccess, body);
}

TEST_F(FaultEffectsTest, AStallWhoseClientLeavesCountsAsCut) {
  const int id = collector_.addFault(R"({"effect":"stall","seconds":3000})");
  collector_.leaveDuringAnswer();

  collector_.parts().faults.remove(id);

  collector_.waitForOutcome(Outcome::kCut);
}

TEST_F(FaultEffectsTest, ARefusalThatIsLostIsStillARefusal) {
  const int id = collector_.addFault(R"({"effect":"temporary","seconds":3000})");
  auto lost = std::async(std::launch::async, [this] { return answer(); });
  collector_.waitForHits(id);

  collector_.stop();

  EXPECT_THAT(lost.get(), StartsWith(kNoAnswer));
  EXPECT_EQ(Outcome::kRetry, lastAnswer().outcome);
}

TEST_F(FaultEffectsTest, CutBeforeLetsNoRequestIn) {
  collector_.addFault(R"({"effect":"cut-before","times":1})");

  EXPECT_THAT(answer(), StartsWith(kNoAnswer));
  EXPECT_THAT(collector_.rows(), IsEmpty());
  EXPECT_EQ(kSuccess, answer());
}

TEST_F(FaultEffectsTest, CutDuringTakesNothingIn) {
  collector_.addFault(R"({"effect":"cut-during","times":1})");

  EXPECT_THAT(answer(), StartsWith(kNoAnswer));
  EXPECT_THAT(collector_.rows(), IsEmpty());
  EXPECT_EQ(kSuccess, answer());
}

TEST_F(FaultEffectsTest, CutAfterTakesTheReportInAndDoesNotAnswer) {
  collector_.addFault(R"({"effect":"cut-after","times":1})");

  EXPECT_THAT(answer(), StartsWith(kNoAnswer));
  ASSERT_THAT(collector_.rows(), SizeIs(1));
  EXPECT_EQ(Outcome::kCut, lastAnswer().outcome);
  EXPECT_EQ(kSuccess, answer());
}

TEST_F(FaultEffectsTest, RedirectLeadsBackHere) {
  collector_.addFault(R"({"effect":"redirect","times":1})");

  const auto result = response();

  ASSERT_TRUE(result);
  EXPECT_EQ(307, result->status);
  EXPECT_EQ("https://127.0.0.1:" + std::to_string(collector_.gamePort()) + "/session",
            result->get_header_value("Location"));
  EXPECT_EQ(Outcome::kOther, lastAnswer().outcome);
  EXPECT_EQ(307, lastAnswer().status);
}

TEST_F(FaultEffectsTest, RedirectLeadsToAPortWithoutTls) {
  collector_.addFault(R"({"effect":"redirect","to":"http"})");

  const auto result = response();

  ASSERT_TRUE(result);
  EXPECT_EQ("http://127.0.0.1:" + std::to_string(collector_.pagePort()) + "/session",
            result->get_header_value("Location"));
}

TEST_F(FaultEffectsTest, ExpiredCertificateIsOneWhoseTimeIsOver) {
  collector_.addFault(R"({"effect":"expired-certificate","times":1})");
  const auto client = collector_.game();

  EXPECT_FALSE(client->Post("/session", adAttempt(), "application/json"));

  EXPECT_EQ(X509_V_ERR_CERT_HAS_EXPIRED, client->get_openssl_verify_result());
  EXPECT_EQ(kSuccess, answer());
}

TEST_F(FaultEffectsTest, WrongHostCertificateIsSoundButForAnother) {
  collector_.addFault(R"({"effect":"wrong-host-certificate","times":1})");
  const auto client = collector_.game();

  const auto result = client->Post("/session", adAttempt(), "application/json");

  EXPECT_EQ(httplib::Error::SSLServerVerification, result.error());
  EXPECT_EQ(X509_V_OK, client->get_openssl_verify_result());
  EXPECT_EQ(kSuccess, answer());
}

TEST_F(FaultEffectsTest, FaultsOfConnectionsKnowTheirTypeByThePort) {
  RunningCollector separate({.separatePorts = true});
  separate.addFault(R"({"effect":"cut-before","types":["ad-attempt"]})");

  EXPECT_FALSE(separate.game("localhost", "ad-attempt")->Post("/session", "{}", "text/plain"));
  EXPECT_TRUE(separate.game("localhost", "config")->Post("/config", "{}", "text/plain"));
}

TEST_F(FaultEffectsTest, HoldsEndWithTheCollector) {
  const int delay =
      collector_.addFault(R"({"effect":"delay","seconds":3000,"types":["ad-attempt"]})");
  const int stall = collector_.addFault(R"({"effect":"stall","seconds":3000,"types":["config"]})");
  auto late = std::async(std::launch::async, [this] { return answer(); });
  auto stalled =
      std::async(std::launch::async, [this] { return collector_.answerTo("/config", "{}"); });
  collector_.waitForHits(delay);
  collector_.waitForHits(stall);

  EXPECT_GT(kSoon, collector_.stop());

  EXPECT_THAT(late.get(), StartsWith(kNoAnswer));
  EXPECT_THAT(stalled.get(), StartsWith(kNoAnswer));
}

}  // namespace
}  // namespace zln::collector
