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

class ZLNReportOperationPostTest : public ReportingTest {
 protected:
  // Starts the operation of a new report; its request is number 0.
  void start(bool validateResponse = true) { start(adReport(), validateResponse); }

  void start(std::shared_ptr<ZLNReportBase> sent, bool validateResponse = true) {
    report = std::move(sent);
    operation = ZLNReportOperationPost::initWithReport(report, validateResponse, delegate);
    operation->addObserver(finishes);
    operation->start();
  }

  void expectEndedOnce() const {
    EXPECT_FALSE(operation->isExecuting());
    EXPECT_TRUE(operation->isFinished());
    EXPECT_EQ(1, finishes->count);
  }

  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
  const std::shared_ptr<FinishCounter> finishes = std::make_shared<FinishCounter>();
  std::shared_ptr<ZLNReportBase> report;
  std::shared_ptr<ZLNReportOperationPost> operation;
};

TEST_F(ZLNReportOperationPostTest, PostsTheReportAsCompactJson) {
  start();

  ASSERT_EQ(1u, env.http.requests().size());
  const HttpRequest& request = env.http.requests()[0];
  EXPECT_EQ("POST", request.method);
  EXPECT_EQ(kAdAttemptUrl, request.url);
  EXPECT_EQ(
      R"({"userId":"USER","country":"DE","type":"ReportTypeAdAttempt","device":"iPhone14,5",)"
      R"("platform":"iOS","bundleId":"com.example.game",)"
      R"("adEventId":"00000000-0000-4000-8000-000000000001","network":"net","adType":"banner",)"
      R"("fill":false})",
      request.body);
  EXPECT_THAT(request.headers,
              ElementsAre(Pair("Content-Length", "228"), Pair("Content-Type", "application/json")));
}

TEST_F(ZLNReportOperationPostTest, PostsToTheUrlOfTheReport) {
  const auto sent = adReport();
  sent->setUrlString("https://other.example.invalid/session");

  start(sent);

  EXPECT_EQ("https://other.example.invalid/session", env.http.requests()[0].url);
}

TEST_F(ZLNReportOperationPostTest, TheLengthCountsBytes) {
  start(adReport("\u00e9\U0001F3AE"));

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

  start();

  EXPECT_EQ(
      (std::vector<std::string>{
          std::string("ZLN Session: posting report <ZLNReportAdAttempt: 0x*> to ") + kAdAttemptUrl,
          R"(ZLN Session: sending report: {"userId":"USER","country":"DE",)"
          R"("type":"ReportTypeAdAttempt","device":"iPhone14,5","platform":"iOS",)"
          R"("bundleId":"com.example.game","adEventId":"00000000-0000-4000-8000-000000000001",)"
          R"("network":"net","adType":"banner","fill":false})"}),
      newLines());
}

TEST_F(ZLNReportOperationPostTest, AtDebugTheTargetIsNotSaid) {
  setLevel(3);

  start();

  EXPECT_THAT(newLines(), ElementsAre(StartsWith("ZLN Session: sending report: ")));
}

TEST_F(ZLNReportOperationPostTest, AtInfoTheSendingIsSaid) {
  setLevel(2);

  start();

  EXPECT_THAT(newLines(), ElementsAre(StartsWith("ZLN Session: sending report: ")));
}

TEST_F(ZLNReportOperationPostTest, AtWarnNothingIsSaidOfTheSending) {
  setLevel(1);

  start();

  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ZLNReportOperationPostTest, WithoutAReportItFailsForGoodAndSendsNothing) {
  start(nullptr);

  EXPECT_THAT(delegate->outcomes,
              ElementsAre("permanent Error Domain=Zelnor Code=-13 \"No report to report\" "
                          "UserInfo={NSLocalizedDescription=No report to report}"));
  EXPECT_THAT(delegate->reports, ElementsAre(nullptr));
  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: report operation with no report"));
  EXPECT_THAT(env.http.requests(), IsEmpty());
  expectEndedOnce();
}

TEST_F(ZLNReportOperationPostTest, AReportWithoutADictionaryFailsForGood) {
  start(std::make_shared<OddReport>(std::nullopt));

  EXPECT_THAT(
      delegate->outcomes,
      ElementsAre("permanent Error Domain=NSCocoaErrorDomain Code=3840 \"The data couldn’t be read "
                  "because it isn’t in the correct format.\" "
                  "UserInfo={NSDebugDescription=Invalid top-level type in JSON write}"));
  EXPECT_THAT(delegate->reports, ElementsAre(report));
  EXPECT_THAT(newLines(),
              ElementsAre("ZLN Session: invalid super serialization (null) ((null))",
                          "ZLN Session: unable to prepare report for transmission with Error "
                          "Domain=NSCocoaErrorDomain Code=3840 \"The data couldn’t be read because "
                          "it isn’t in the correct format.\" "
                          "UserInfo={NSDebugDescription=Invalid top-level type in JSON write}"));
  EXPECT_THAT(env.http.requests(), IsEmpty());
  expectEndedOnce();
}

struct UnwritableValue {
  const char* name;
  Value value;
};

class ZLNReportOperationPostUnwritableTest : public ZLNReportOperationPostTest,
                                             public testing::WithParamInterface<UnwritableValue> {};

INSTANTIATE_TEST_SUITE_P(Values, ZLNReportOperationPostUnwritableTest,
                         testing::Values(UnwritableValue{"NotANumber",
                                                         Number::float64(std::nan(""))},
                                         UnwritableValue{"Infinity", Number::float64(HUGE_VAL)},
                                         UnwritableValue{"Date", Date{1700000000}},
                                         UnwritableValue{"Data", Data{"net"}}),
                         [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportOperationPostUnwritableTest, AReportThatJsonCannotHoldFailsForGood) {
  start(ZLNReportAdAttempt::initWithDictionary({{"network", GetParam().value}}));

  EXPECT_THAT(delegate->outcomes,
              ElementsAre(StartsWith("permanent Error Domain=NSCocoaErrorDomain Code=3840 ")));
  EXPECT_THAT(delegate->reports, ElementsAre(report));
  EXPECT_THAT(newLines(),
              ElementsAre(StartsWith("ZLN Session: unable to prepare report for transmission with "
                                     "Error Domain=NSCocoaErrorDomain Code=3840 ")));
  EXPECT_THAT(env.http.requests(), IsEmpty());
  expectEndedOnce();
}

struct TransportError {
  const char* name;
  Error error;
  const char* outcome;
  const char* line;
};

class ZLNReportOperationPostTransportErrorTest
    : public ZLNReportOperationPostTest,
      public testing::WithParamInterface<TransportError> {};

INSTANTIATE_TEST_SUITE_P(
    Errors, ZLNReportOperationPostTransportErrorTest,
    testing::Values(
        TransportError{
            "TimedOut", Error{"NSURLErrorDomain", -1001, "The request timed out.", {}},
            "temporary Error Domain=NSURLErrorDomain Code=-1001 \"The request timed out.\" "
            "UserInfo={NSLocalizedDescription=The request timed out.}",
            "ZLN Session: failed to submit report with Error Domain=NSURLErrorDomain Code=-1001 "
            "\"The request timed out.\" UserInfo={NSLocalizedDescription=The request timed out.}"},
        TransportError{"ConnectionLost", Error{"NSURLErrorDomain", -1005, std::nullopt, {}},
                       "temporary Error Domain=NSURLErrorDomain Code=-1005 \"(null)\"",
                       "ZLN Session: failed to submit report with Error Domain=NSURLErrorDomain "
                       "Code=-1005 \"(null)\""},
        TransportError{"BadServerResponse", Error{"NSURLErrorDomain", -1011, std::nullopt, {}},
                       "permanent Error Domain=NSURLErrorDomain Code=-1011 \"(null)\"",
                       "ZLN Session: failed to submit report with Error Domain=NSURLErrorDomain "
                       "Code=-1011 \"(null)\""},
        TransportError{"BadServerResponseOfAnotherDomain",
                       Error{"SomeDomain", -1011, std::nullopt, {}},
                       "permanent Error Domain=SomeDomain Code=-1011 \"(null)\"",
                       "ZLN Session: failed to submit report with Error Domain=SomeDomain "
                       "Code=-1011 \"(null)\""},
        TransportError{"Cancelled", Error{"NSURLErrorDomain", -999, "cancelled", {}},
                       "permanent Error Domain=NSURLErrorDomain Code=-999 \"cancelled\" "
                       "UserInfo={NSLocalizedDescription=cancelled}",
                       "ZLN Session: failed to submit report with Error Domain=NSURLErrorDomain "
                       "Code=-999 \"cancelled\" UserInfo={NSLocalizedDescription=cancelled}"},
        TransportError{"UnsupportedUrl", Error{"NSURLErrorDomain", -1002, std::nullopt, {}},
                       "permanent Error Domain=NSURLErrorDomain Code=-1002 \"(null)\"",
                       "ZLN Session: failed to submit report with Error Domain=NSURLErrorDomain "
                       "Code=-1002 \"(null)\""},
        TransportError{
            "UserCancelled", Error{"NSCocoaErrorDomain", 3072, std::nullopt, {}},
            "permanent Error Domain=NSCocoaErrorDomain Code=3072 \"The operation was cancelled.\"",
            "ZLN Session: failed to submit report with Error Domain=NSCocoaErrorDomain Code=3072 "
            "\"The operation was cancelled.\""}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportOperationPostTransportErrorTest, IsSortedAndHandedOnAsItIs) {
  start();

  env.http.fail(0, GetParam().error);

  EXPECT_THAT(delegate->outcomes, ElementsAre(GetParam().outcome));
  EXPECT_THAT(delegate->reports, ElementsAre(report));
  EXPECT_THAT(newLines(), ElementsAre(GetParam().line));
  expectEndedOnce();
}

TEST_P(ZLNReportOperationPostTransportErrorTest, FailsAlsoWhenTheReplyDoesNotCount) {
  start(false);

  env.http.fail(0, GetParam().error);

  EXPECT_THAT(delegate->outcomes, ElementsAre(GetParam().outcome));
  expectEndedOnce();
}

struct ReplyRow {
  const char* name;
  int status;
  std::string body;
  const char* outcome;
  // The lines at level error.
  std::vector<std::string> lines;
};

class ZLNReportOperationPostReplyTest : public ZLNReportOperationPostTest,
                                        public testing::WithParamInterface<ReplyRow> {};

TEST_P(ZLNReportOperationPostReplyTest, IsSortedByItsBody) {
  start();

  env.http.reply(0, GetParam().status, GetParam().body);

  EXPECT_THAT(delegate->outcomes, ElementsAre(GetParam().outcome));
  EXPECT_THAT(delegate->reports, ElementsAre(report));
  EXPECT_EQ(GetParam().lines, newLines());
  expectEndedOnce();
}

INSTANTIATE_TEST_SUITE_P(
    Accepted, ZLNReportOperationPostReplyTest,
    testing::Values(
        ReplyRow{"True", 200, R"({"success":true})", "delivered", {}},
        ReplyRow{"TrueWithStatus500", 500, R"({"success":true})", "delivered", {}},
        ReplyRow{"TrueWithStatus404", 404, R"({"success":true})", "delivered", {}},
        ReplyRow{"One", 200, R"({"success":1})", "delivered", {}},
        ReplyRow{"Negative", 200, R"({"success":-1})", "delivered", {}},
        ReplyRow{"Half", 200, R"({"success":0.5})", "delivered", {}},
        ReplyRow{"Beyond32Bits", 200, R"({"success":4294967296})", "delivered", {}},
        ReplyRow{"WithTrailingComma", 200, R"({"success":true,})", "delivered", {}},
        ReplyRow{"WithBlanks", 200, " { \"success\" : true } \r\n", "delivered", {}},
        ReplyRow{"WithByteOrderMark", 200, "\xEF\xBB\xBF{\"success\":true}", "delivered", {}},
        ReplyRow{"WithAnErrorThatDoesNotCount",
                 200,
                 R"({"error":"x","errorIsPermanent":true,"success":true})",
                 "delivered",
                 {}},
        ReplyRow{"Huge",
                 200,
                 R"({"pad":")" + std::string(8 << 20, 'x') + R"(","success":true})",
                 "delivered",
                 {}}),
    [](const auto& parameter) { return parameter.param.name; });

constexpr char kRejectedLine[] = "ZLN Session: server rejected report <ZLNReportAdAttempt: 0x*>";

INSTANTIATE_TEST_SUITE_P(
    Rejected, ZLNReportOperationPostReplyTest,
    testing::Values(
        ReplyRow{"False", 200, R"({"success":false})", kRejected, {kRejectedLine}},
        ReplyRow{"Zero", 200, R"({"success":0})", kRejected, {kRejectedLine}},
        ReplyRow{"RealZero", 200, R"({"success":0.0})", kRejected, {kRejectedLine}},
        ReplyRow{"TemporaryWithAText",
                 200,
                 R"({"success":false,"errorIsPermanent":false,"error":"bad data"})",
                 kRejected,
                 {kRejectedLine}},
        ReplyRow{"PermanentByZero",
                 200,
                 R"({"success":false,"errorIsPermanent":0,"error":"x"})",
                 kRejected,
                 {kRejectedLine}},
        ReplyRow{"PermanentByAText",
                 200,
                 R"({"success":false,"errorIsPermanent":"yes","error":"x"})",
                 kRejected,
                 {kRejectedLine}},
        ReplyRow{"PermanentByNull",
                 200,
                 R"({"success":false,"errorIsPermanent":null})",
                 kRejected,
                 {kRejectedLine}},
        ReplyRow{"Permanent",
                 200,
                 R"({"success":false,"errorIsPermanent":true})",
                 kRejectedForGood,
                 {kRejectedLine}},
        ReplyRow{"PermanentByANumber",
                 200,
                 R"({"success":0,"errorIsPermanent":-0.5})",
                 kRejectedForGood,
                 {kRejectedLine}},
        ReplyRow{"PermanentWithAText",
                 200,
                 R"({"success":false,"errorIsPermanent":true,"error":"bad data"})",
                 "permanent Error Domain=Zelnor Code=-16 \"bad data\" "
                 "UserInfo={NSLocalizedDescription=bad data}",
                 {kRejectedLine}},
        ReplyRow{"PermanentWithAnEmptyText",
                 200,
                 R"({"success":false,"errorIsPermanent":true,"error":""})",
                 "permanent Error Domain=Zelnor Code=-16 \"\" UserInfo={NSLocalizedDescription=}",
                 {kRejectedLine}},
        ReplyRow{"PermanentWithANumber",
                 200,
                 R"({"success":false,"errorIsPermanent":true,"error":5})",
                 kRejectedForGood,
                 {kRejectedLine}}),
    [](const auto& parameter) { return parameter.param.name; });

INSTANTIATE_TEST_SUITE_P(
    WithoutSuccess, ZLNReportOperationPostReplyTest,
    testing::Values(
        ReplyRow{"EmptyObject",
                 200,
                 "{}",
                 kNoSuccess,
                 {"ZLN Session: unexpected server response {\n}, expecting success code not "
                  "(null)"}},
        ReplyRow{"Text",
                 200,
                 R"({"success":"true"})",
                 kNoSuccess,
                 {"ZLN Session: unexpected server response {\n    success = true;\n}, expecting "
                  "success code not true"}},
        ReplyRow{"Null",
                 200,
                 R"({"success":null})",
                 kNoSuccess,
                 {"ZLN Session: unexpected server response {\n    success = \"<null>\";\n}, "
                  "expecting success code not <null>"}},
        ReplyRow{"List",
                 200,
                 R"({"success":[1]})",
                 kNoSuccess,
                 {"ZLN Session: unexpected server response {\n    success =     (\n        1\n    "
                  ");\n}, expecting success code not (\n    1\n)"}},
        ReplyRow{"OtherCase",
                 200,
                 R"({"Success":true})",
                 kNoSuccess,
                 {"ZLN Session: unexpected server response {\n    Success = 1;\n}, expecting "
                  "success code not (null)"}},
        ReplyRow{"PermanentAlone",
                 200,
                 R"({"errorIsPermanent":true})",
                 kNoSuccess,
                 {"ZLN Session: unexpected server response {\n    errorIsPermanent = 1;\n}, "
                  "expecting success code not (null)"}},
        ReplyRow{"EmptyArray",
                 200,
                 "[]",
                 kNoSuccess,
                 {"ZLN Session: unexpected server response (\n), expecting success code not "
                  "(null)"}},
        ReplyRow{"ArrayOfAnObject",
                 200,
                 R"([{"success":true}])",
                 kNoSuccess,
                 {"ZLN Session: unexpected server response (\n        {\n        success = 1;\n    "
                  "}\n), expecting success code not (null)"}}),
    [](const auto& parameter) { return parameter.param.name; });

struct NotJsonRow {
  const char* name;
  int status;
  std::string body;
  const char* shownBody;
};

class ZLNReportOperationPostNotJsonTest : public ZLNReportOperationPostTest,
                                          public testing::WithParamInterface<NotJsonRow> {};

INSTANTIATE_TEST_SUITE_P(
    Replies, ZLNReportOperationPostNotJsonTest,
    testing::Values(
        NotJsonRow{"Empty", 200, "", "{length = 0, bytes = 0x}"},
        NotJsonRow{"EmptyWithStatus204", 204, "", "{length = 0, bytes = 0x}"},
        NotJsonRow{"Page", 200, "<html>", "{length = 6, bytes = 0x3c68746d6c3e}"},
        NotJsonRow{"BareText", 200, "\"true\"", "{length = 6, bytes = 0x227472756522}"},
        NotJsonRow{"BareNumber", 200, "1", "{length = 1, bytes = 0x31}"},
        NotJsonRow{"BareTrue", 200, "true", "{length = 4, bytes = 0x74727565}"},
        NotJsonRow{"CutShort", 200, "{\"success\":true",
                   "{length = 15, bytes = 0x7b2273756363657373223a74727565}"},
        NotJsonRow{"MoreBehind", 200, "{\"success\":true}x",
                   "{length = 17, bytes = 0x7b2273756363657373223a747275657d78}"},
        NotJsonRow{"BrokenUtf8", 200, "{\"\xFF\":1}", "{length = 7, bytes = 0x7b22ff223a317d}"},
        NotJsonRow{"DeeplyNested", 200, std::string(100000, '['),
                   "{length = 100000, bytes = 0x5b5b5b5b 5b5b5b5b 5b5b5b5b 5b5b5b5b ... 5b5b5b5b "
                   "5b5b5b5b }"},
        NotJsonRow{"DeeplyNestedAndClosed", 200,
                   std::string(100000, '[') + std::string(100000, ']'),
                   "{length = 200000, bytes = 0x5b5b5b5b 5b5b5b5b 5b5b5b5b 5b5b5b5b ... 5d5d5d5d "
                   "5d5d5d5d }"}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportOperationPostNotJsonTest, IsATemporaryFailure) {
  start();

  env.http.reply(0, GetParam().status, GetParam().body);

  EXPECT_THAT(delegate->outcomes, ElementsAre(kNotJson));
  EXPECT_THAT(delegate->reports, ElementsAre(report));
  EXPECT_THAT(newLines(),
              ElementsAre(StartsWith(std::string("ZLN Session: unexpected server response from ") +
                                     kAdAttemptUrl + ": " + GetParam().shownBody +
                                     " / error Error Domain=NSCocoaErrorDomain Code=3840 ")));
  expectEndedOnce();
}

TEST_P(ZLNReportOperationPostNotJsonTest, IsADeliveryWhenTheReplyDoesNotCount) {
  start(false);

  env.http.reply(0, GetParam().status, GetParam().body);

  EXPECT_THAT(delegate->outcomes, ElementsAre("delivered"));
  EXPECT_THAT(newLines(), IsEmpty());
  expectEndedOnce();
}

TEST_F(ZLNReportOperationPostTest, ARejectionIsADeliveryWhenTheReplyDoesNotCount) {
  start(false);

  env.http.reply(0, R"({"success":false,"errorIsPermanent":true})");

  EXPECT_THAT(delegate->outcomes, ElementsAre("delivered"));
}

TEST_F(ZLNReportOperationPostTest, SaysWhatItGotForADelivery) {
  start();
  setLevel(3);
  log().clear();

  env.http.reply(0, R"({"success":true})");

  EXPECT_THAT(
      newLines(),
      ElementsAre(std::string("ZLN Session: report submitted; response "
                              "<NSHTTPURLResponse: 0x*> { URL: ") +
                  kAdAttemptUrl + " } { Status Code: 200, Headers {\n} } = {\"success\":true}"));
}

TEST_F(ZLNReportOperationPostTest, ADeliveryWhoseBodyIsNoTextShowsNone) {
  start(false);
  setLevel(3);
  log().clear();

  env.http.reply(0, 503, "\xFF");

  EXPECT_THAT(newLines(),
              ElementsAre(std::string("ZLN Session: report submitted; response "
                                      "<NSHTTPURLResponse: 0x*> { URL: ") +
                          kAdAttemptUrl + " } { Status Code: 503, Headers {\n} } = (null)"));
}

TEST_F(ZLNReportOperationPostTest, AtInfoADeliveryIsNotSaid) {
  start();
  setLevel(2);
  log().clear();

  env.http.reply(0, R"({"success":true})");

  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ZLNReportOperationPostTest, TheDelegateIsToldWhileTheOperationIsExecuting) {
  for (const char* body : {R"({"success":true})", R"({"success":false})",
                           R"({"success":false,"errorIsPermanent":true})", "", "[]"}) {
    bool wasExecuting = false;
    bool wasFinished = true;
    delegate->onOutcome = [&] {
      wasExecuting = operation->isExecuting();
      wasFinished = operation->isFinished();
    };
    start();

    env.http.reply(env.http.requests().size() - 1, body);

    EXPECT_TRUE(wasExecuting) << body;
    EXPECT_FALSE(wasFinished) << body;
    EXPECT_TRUE(operation->isFinished()) << body;
  }
}

TEST_F(ZLNReportOperationPostTest, TheDelegateIsToldOfATransportErrorWhileItIsExecuting) {
  bool wasExecuting = false;
  delegate->onOutcome = [&] { wasExecuting = operation->isExecuting(); };
  start();

  env.http.fail(0, -1001);

  EXPECT_TRUE(wasExecuting);
}

TEST_F(ZLNReportOperationPostTest, TheDelegateIsToldOfAnEarlyFailureWhileItIsExecuting) {
  bool wasExecuting = false;
  delegate->onOutcome = [&] { wasExecuting = operation->isExecuting(); };

  start(nullptr);

  EXPECT_TRUE(wasExecuting);
}

TEST_F(ZLNReportOperationPostTest, WithoutItsDelegateItCompletesAllTheSame) {
  for (const char* body : {R"({"success":true})", R"({"success":false})",
                           R"({"success":false,"errorIsPermanent":true})", "", "[]"}) {
    delegate = std::make_shared<RecordingDelegate>();
    start();
    delegate.reset();

    env.http.reply(env.http.requests().size() - 1, body);

    EXPECT_TRUE(operation->isFinished()) << body;
    EXPECT_FALSE(operation->isExecuting()) << body;
  }
}

TEST_F(ZLNReportOperationPostTest, WithoutItsDelegateATransportErrorCompletesIt) {
  start();
  delegate.reset();

  env.http.fail(0, -1001);

  expectEndedOnce();
}

TEST_F(ZLNReportOperationPostTest, WithoutItsDelegateAnEarlyFailureCompletesIt) {
  delegate.reset();

  start(nullptr);

  expectEndedOnce();
}

TEST_F(ZLNReportOperationPostTest, TheRequestKeepsTheOperationAlive) {
  start();
  const std::weak_ptr<ZLNReportOperationPost> running = operation;

  operation.reset();

  EXPECT_FALSE(running.expired());

  env.http.reply(0, R"({"success":true})");

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
