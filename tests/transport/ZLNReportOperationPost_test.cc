#include "transport/ZLNReportOperationPost.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/json.h"
#include "support/endpoints.h"
#include "tests/transport/reporting_test.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::StartsWith;

// Notes every outcome as one line.
class RecordingDelegate : public ZLNReportOperationDelegate {
 public:
  void reportFailedWithTemporaryError(const std::shared_ptr<ZLNReportBase>& report,
                                      const Error& error) override {
    note("temporary " + error.description(), report);
  }
  void reportFailedWithPermanentError(const std::shared_ptr<ZLNReportBase>& report,
                                      const Error& error) override {
    note("permanent " + error.description(), report);
  }
  void reportTransmittedSuccessfully(const std::shared_ptr<ZLNReportBase>& report) override {
    note("delivered", report);
  }

  std::vector<std::string> outcomes;
  std::vector<std::shared_ptr<ZLNReportBase>> reports;
  std::function<void()> onOutcome;

 private:
  void note(std::string outcome, const std::shared_ptr<ZLNReportBase>& report) {
    outcomes.push_back(std::move(outcome));
    reports.push_back(report);
    if (onOutcome) onOutcome();
  }
};

// Counts how often an operation says that it has finished.
class FinishCounter : public OperationObserver {
 public:
  void valueChanged(Operation&, ValueChange change, std::string_view key) override {
    if (change == ValueChange::did && key == kIsFinishedKey) ++count;
  }

  int count = 0;
};

constexpr char kNotJson[] =
    "temporary Error Domain=Zelnor Code=-16 \"could not parse json response\" "
    "UserInfo={NSLocalizedDescription=could not parse json response}";
constexpr char kNoSuccess[] =
    "temporary Error Domain=Zelnor Code=-16 \"response success code not found\" "
    "UserInfo={NSLocalizedDescription=response success code not found}";
constexpr char kRejected[] =
    "temporary Error Domain=Zelnor Code=-16 \"server rejected report\" "
    "UserInfo={NSLocalizedDescription=server rejected report}";
constexpr char kRejectedForGood[] =
    "permanent Error Domain=Zelnor Code=-16 \"server rejected report\" "
    "UserInfo={NSLocalizedDescription=server rejected report}";
constexpr char kSent[] =
    R"({"userId":"USER","country":"DE","type":"ReportTypeAdAttempt","device":"iPhone14,5",)"
    R"("platform":"iOS","bundleId":"com.example.game",)"
    R"("adEventId":"00000000-0000-4000-8000-000000000001","network":"net","adType":"banner",)"
    R"("fill":false})";

// One body for each branch of the reply; none stands for a transport error.
constexpr const char* kEndings[] = {R"({"success":true})",
                                    R"({"success":false})",
                                    R"({"success":false,"errorIsPermanent":true})",
                                    "",
                                    "[]",
                                    nullptr};

class ZLNReportOperationPostTest : public ReportingTest {
 protected:
  void start(bool validateResponse = true) { start(adReport(), validateResponse); }

  void start(std::shared_ptr<ZLNReportBase> sent, bool validateResponse = true) {
    report = std::move(sent);
    operation = ZLNReportOperationPost::initWithReport(report, validateResponse, delegate);
    finishes = std::make_shared<FinishCounter>();
    operation->addObserver(finishes);
    operation->start();
  }

  // Both answer the newest request.
  void reply(std::string body, int status = 200) {
    env.http.reply(env.http.requests().size() - 1, status, std::move(body));
  }
  void fail(const Error& error) { env.http.fail(env.http.requests().size() - 1, error); }

  // One of kEndings.
  void end(const char* body) {
    if (body == nullptr) {
      fail(Error{"NSURLErrorDomain", -1001, std::nullopt, {}});
    } else {
      reply(body);
    }
  }

  void expectEndedOnce() const {
    EXPECT_FALSE(operation->isExecuting());
    EXPECT_TRUE(operation->isFinished());
    EXPECT_EQ(1, finishes->count);
  }

  // The end of the operation and what the delegate has been told of its report.
  std::string takeOutcome() {
    expectEndedOnce();
    EXPECT_THAT(std::exchange(delegate->reports, {}), ElementsAre(report));
    return std::exchange(delegate->outcomes, {}).at(0);
  }

  std::string outcomeOfReply(std::string body, int status = 200, bool validateResponse = true) {
    start(validateResponse);
    reply(std::move(body), status);
    return takeOutcome();
  }

  std::string outcomeOfError(const Error& error, bool validateResponse = true) {
    start(validateResponse);
    fail(error);
    return takeOutcome();
  }

  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
  std::shared_ptr<FinishCounter> finishes;
  std::shared_ptr<ZLNReportBase> report;
  std::shared_ptr<ZLNReportOperationPost> operation;
};

// Sending.

TEST_F(ZLNReportOperationPostTest, PostsTheReportAsCompactJson) {
  start();

  ASSERT_THAT(env.http.requests(), SizeIs(1));
  const HttpRequest& request = env.http.requests()[0];
  EXPECT_EQ("POST", request.method);
  EXPECT_EQ(kAdAttemptUrl, request.url);
  EXPECT_EQ(kSent, request.body);
  EXPECT_THAT(request.headers,
              ElementsAre(Pair("Content-Length", "228"), Pair("Content-Type", "application/json")));
}

TEST_F(ZLNReportOperationPostTest, PostsToTheUrlOfTheReportWithALengthInBytes) {
  const auto sent = adReport("\u00e9\U0001F3AE");
  sent->setUrlString("https://other.example.invalid/session");

  start(sent);

  EXPECT_EQ("https://other.example.invalid/session", env.http.requests()[0].url);
  EXPECT_EQ("231", env.http.requests()[0].headers[0].second);
  EXPECT_EQ(231u, env.http.requests()[0].body.size());
}

TEST_F(ZLNReportOperationPostTest, OddTextsArriveUnchanged) {
  const std::string odd = std::string("\0\x01\x1f\x7f\b\f\n\r\t\"'\\/<&>", 16) +
                          "\u00e9\u2028\U0001F3AE" + std::string(65536, 'x');

  start(adReport(odd));

  const std::optional<Value> body = json::parse(env.http.requests()[0].body, nullptr);
  ASSERT_TRUE(body.has_value());
  EXPECT_EQ(odd, *body->dictionary()->findString("network"));
}

TEST_F(ZLNReportOperationPostTest, GoesOnExecutingUntilTheReply) {
  start();

  EXPECT_TRUE(operation->isExecuting());
  EXPECT_FALSE(operation->isFinished());
  EXPECT_THAT(delegate->outcomes, IsEmpty());
}

TEST_F(ZLNReportOperationPostTest, SaysWhatItPosts) {
  setLevel(4);
  const auto sent = adReport();
  env.journal.begin();

  start(sent);

  expectCalls({std::string("log: posting report <ZLNReportAdAttempt: 0x*> to ") + kAdAttemptUrl,
               std::string("log: sending report: ") + kSent,
               std::string("request ") + kAdAttemptUrl});
}

TEST_F(ZLNReportOperationPostTest, WithoutAReportItFailsForGoodAndSendsNothing) {
  start(nullptr);

  EXPECT_EQ(
      "permanent Error Domain=Zelnor Code=-13 \"No report to report\" "
      "UserInfo={NSLocalizedDescription=No report to report}",
      takeOutcome());
  expectLines({"report operation with no report"});
  EXPECT_THAT(env.http.requests(), IsEmpty());
}

TEST_F(ZLNReportOperationPostTest, AReportWithoutADictionaryFailsForGood) {
  const std::string error =
      "Error Domain=NSCocoaErrorDomain Code=3840 \"The data couldn’t be read because it isn’t in "
      "the correct format.\" UserInfo={NSDebugDescription=Invalid top-level type in JSON write}";

  start(std::make_shared<OddReport>(std::nullopt));

  EXPECT_EQ("permanent " + error, takeOutcome());
  expectLines({"invalid super serialization (null) ((null))",
               "unable to prepare report for transmission with " + error});
  EXPECT_THAT(env.http.requests(), IsEmpty());
}

TEST_F(ZLNReportOperationPostTest, AReportThatJsonCannotHoldFailsForGood) {
  for (const Value& value : {Value(Number::float64(std::nan(""))), Value(Number::float64(HUGE_VAL)),
                             Value(Date{1700000000}), Value(Data{"net"})}) {
    SCOPED_TRACE(value.description());

    start(ZLNReportAdAttempt::initWithDictionary({{"network", value}}));

    EXPECT_THAT(takeOutcome(), StartsWith("permanent Error Domain=NSCocoaErrorDomain Code=3840 "));
    EXPECT_THAT(newLines(),
                ElementsAre(StartsWith("unable to prepare report for transmission with Error "
                                       "Domain=NSCocoaErrorDomain Code=3840 ")));
    EXPECT_THAT(env.http.requests(), IsEmpty());
  }
}

// Transport errors.

TEST_F(ZLNReportOperationPostTest, ATransportErrorIsSortedAndHandedOnAsItIsWhateverReplyCounts) {
  struct Row {
    Error error;
    std::string outcome;
    std::string text;
  };
  const std::vector<Row> rows = {
      {{"NSURLErrorDomain", -1001, "The request timed out.", {}},
       "temporary ",
       "Error Domain=NSURLErrorDomain Code=-1001 \"The request timed out.\" "
       "UserInfo={NSLocalizedDescription=The request timed out.}"},
      {{"NSURLErrorDomain", -1005, std::nullopt, {}},
       "temporary ",
       "Error Domain=NSURLErrorDomain Code=-1005 \"(null)\""},
      {{"NSURLErrorDomain", -1011, std::nullopt, {}},
       "permanent ",
       "Error Domain=NSURLErrorDomain Code=-1011 \"(null)\""},
      {{"SomeDomain", -1011, std::nullopt, {}},
       "permanent ",
       "Error Domain=SomeDomain Code=-1011 \"(null)\""},
      {{"NSURLErrorDomain", -999, "cancelled", {}},
       "permanent ",
       "Error Domain=NSURLErrorDomain Code=-999 \"cancelled\" "
       "UserInfo={NSLocalizedDescription=cancelled}"},
      {{"NSURLErrorDomain", -1002, std::nullopt, {}},
       "permanent ",
       "Error Domain=NSURLErrorDomain Code=-1002 \"(null)\""},
      {{"NSCocoaErrorDomain", 3072, std::nullopt, {}},
       "permanent ",
       "Error Domain=NSCocoaErrorDomain Code=3072 \"The operation was cancelled.\""}};
  for (const auto& [error, outcome, text] : rows) {
    for (const bool validateResponse : {true, false}) {
      EXPECT_EQ(outcome + text, outcomeOfError(error, validateResponse));
      expectLines({"failed to submit report with " + text});
    }
  }
}

// Replies, with the lines at level error.

TEST_F(ZLNReportOperationPostTest, ANumberOtherThanZeroForSuccessIsADelivery) {
  const std::string huge = R"({"pad":")" + std::string(8 << 20, 'x') + R"(","success":true})";
  for (const std::string& body :
       {std::string(R"({"success":true})"), std::string(R"({"success":1})"),
        std::string(R"({"success":-1})"), std::string(R"({"success":0.5})"),
        std::string(R"({"success":4294967296})"), std::string(R"({"success":true,})"),
        std::string(" { \"success\" : true } \r\n"), std::string("\xEF\xBB\xBF{\"success\":true}"),
        std::string(R"({"error":"x","errorIsPermanent":true,"success":true})"), huge}) {
    EXPECT_EQ("delivered", outcomeOfReply(body)) << body.substr(0, 100);
    expectLines({});
  }
}

TEST_F(ZLNReportOperationPostTest, TheStatusDoesNotCount) {
  for (const int status : {404, 500}) {
    EXPECT_EQ("delivered", outcomeOfReply(R"({"success":true})", status));
  }
}

TEST_F(ZLNReportOperationPostTest, ZeroForSuccessIsARejectionWithTheServersTextWhenPermanent) {
  struct Row {
    const char* body;
    const char* outcome;
  };
  constexpr Row kRows[] = {
      {R"({"success":false})", kRejected},
      {R"({"success":0})", kRejected},
      {R"({"success":0.0})", kRejected},
      {R"({"success":false,"errorIsPermanent":false,"error":"bad data"})", kRejected},
      {R"({"success":false,"errorIsPermanent":0,"error":"x"})", kRejected},
      {R"({"success":false,"errorIsPermanent":"yes","error":"x"})", kRejected},
      {R"({"success":false,"errorIsPermanent":null})", kRejected},
      {R"({"success":false,"errorIsPermanent":true})", kRejectedForGood},
      {R"({"success":0,"errorIsPermanent":-0.5})", kRejectedForGood},
      {R"({"success":false,"errorIsPermanent":true,"error":"bad data"})",
       "permanent Error Domain=Zelnor Code=-16 \"bad data\" "
       "UserInfo={NSLocalizedDescription=bad data}"},
      {R"({"success":false,"errorIsPermanent":true,"error":""})",
       "permanent Error Domain=Zelnor Code=-16 \"\" UserInfo={NSLocalizedDescription=}"},
      {R"({"success":false,"errorIsPermanent":true,"error":5})", kRejectedForGood}};
  for (const auto& [body, outcome] : kRows) {
    EXPECT_EQ(outcome, outcomeOfReply(body)) << body;
    expectLines({"server rejected report <ZLNReportAdAttempt: 0x*>"});
  }
}

TEST_F(ZLNReportOperationPostTest, WithoutANumberForSuccessAReplyIsATemporaryFailure) {
  struct Row {
    const char* body;
    std::string shown;
  };
  const std::vector<Row> rows = {
      {"{}", "{\n}, expecting success code not (null)"},
      {R"({"success":"true"})", "{\n    success = true;\n}, expecting success code not true"},
      {R"({"success":null})", "{\n    success = \"<null>\";\n}, expecting success code not <null>"},
      {R"({"success":[1]})",
       "{\n    success =     (\n        1\n    );\n}, expecting success code not (\n    1\n)"},
      {R"({"Success":true})", "{\n    Success = 1;\n}, expecting success code not (null)"},
      {R"({"errorIsPermanent":true})",
       "{\n    errorIsPermanent = 1;\n}, expecting success code not (null)"},
      {"[]", "(\n), expecting success code not (null)"},
      {R"([{"success":true}])",
       "(\n        {\n        success = 1;\n    }\n), expecting success code not (null)"}};
  for (const auto& [body, shown] : rows) {
    EXPECT_EQ(kNoSuccess, outcomeOfReply(body)) << body;
    expectLines({"unexpected server response " + shown});
  }
}

TEST_F(ZLNReportOperationPostTest, WhatIsNotJsonIsATemporaryFailure) {
  struct Row {
    std::string body;
    const char* shown;
  };
  const std::string nested(100000, '[');
  const std::vector<Row> rows = {
      {"", "{length = 0, bytes = 0x}"},
      {"<html>", "{length = 6, bytes = 0x3c68746d6c3e}"},
      {"\"true\"", "{length = 6, bytes = 0x227472756522}"},
      {"1", "{length = 1, bytes = 0x31}"},
      {"true", "{length = 4, bytes = 0x74727565}"},
      {"{\"success\":true", "{length = 15, bytes = 0x7b2273756363657373223a74727565}"},
      {"{\"success\":true}x", "{length = 17, bytes = 0x7b2273756363657373223a747275657d78}"},
      {"{\"\xFF\":1}", "{length = 7, bytes = 0x7b22ff223a317d}"},
      {nested,
       "{length = 100000, bytes = 0x5b5b5b5b 5b5b5b5b 5b5b5b5b 5b5b5b5b ... 5b5b5b5b 5b5b5b5b }"},
      {nested + std::string(100000, ']'),
       "{length = 200000, bytes = 0x5b5b5b5b 5b5b5b5b 5b5b5b5b 5b5b5b5b ... 5d5d5d5d 5d5d5d5d }"}};
  for (const auto& [body, shown] : rows) {
    for (const int status : {200, 204}) {
      EXPECT_EQ(kNotJson, outcomeOfReply(body, status)) << shown;
      EXPECT_THAT(newLines(),
                  ElementsAre(StartsWith(std::string("unexpected server response from ") +
                                         kAdAttemptUrl + ": " + shown +
                                         " / error Error Domain=NSCocoaErrorDomain Code=3840 ")));
    }
  }
}

TEST_F(ZLNReportOperationPostTest, WhereTheReplyDoesNotCountAnyIsADelivery) {
  for (const char* body :
       {"", "<html>", "{\"\xFF\":1}", R"({"success":false,"errorIsPermanent":true})"}) {
    EXPECT_EQ("delivered", outcomeOfReply(body, 204, false)) << body;
    expectLines({});
  }
}

TEST_F(ZLNReportOperationPostTest, ADeliveryIsSaidWithItsBodyUnlessThatIsNoText) {
  const std::string submitted =
      std::string("report submitted; response <NSHTTPURLResponse: 0x*> { URL: ") + kAdAttemptUrl;
  start(false);
  setLevel(3);
  newLines();

  reply(R"({"success":true})");

  expectLines({submitted + " } { Status Code: 200, Headers {\n} } = {\"success\":true}"});

  start(false);
  newLines();

  reply("\xFF", 503);

  expectLines({submitted + " } { Status Code: 503, Headers {\n} } = (null)"});
}

// The delegate.

TEST_F(ZLNReportOperationPostTest, TheDelegateIsToldWhileTheOperationIsExecuting) {
  std::vector<bool> flags;
  delegate->onOutcome = [&] { flags = {operation->isExecuting(), operation->isFinished()}; };
  for (const char* body : kEndings) {
    start();
    end(body);

    EXPECT_THAT(std::exchange(flags, {}), ElementsAre(true, false));
    expectEndedOnce();
  }

  start(nullptr);

  EXPECT_THAT(flags, ElementsAre(true, false));
}

TEST_F(ZLNReportOperationPostTest, WithoutItsDelegateItCompletesAllTheSame) {
  for (const char* body : kEndings) {
    delegate = std::make_shared<RecordingDelegate>();
    start();
    delegate.reset();
    end(body);

    expectEndedOnce();
  }

  start(nullptr);

  expectEndedOnce();
}

TEST_F(ZLNReportOperationPostTest, TheRequestKeepsTheOperationAlive) {
  start();
  const std::weak_ptr<ZLNReportOperationPost> running = operation;

  operation.reset();

  EXPECT_FALSE(running.expired());

  reply(R"({"success":true})");

  EXPECT_THAT(delegate->outcomes, ElementsAre("delivered"));
  EXPECT_TRUE(running.expired());
}

TEST_F(ZLNReportOperationPostTest, ACancelledOneSendsNothingAndTellsNobody) {
  operation = ZLNReportOperationPost::initWithReport(adReport(), true, delegate);
  operation->cancel();

  operation->start();

  EXPECT_TRUE(operation->isFinished());
  EXPECT_THAT(env.http.requests(), IsEmpty());
  EXPECT_THAT(delegate->outcomes, IsEmpty());
}

}  // namespace
}  // namespace zln
