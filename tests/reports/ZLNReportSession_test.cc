#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "reports/ZLNReportFactory.h"
#include "reports/ZLNReportSessionFirst.h"
#include "reports/ZLNReportSessionStart.h"
#include "reports/ZLNReportSessionStop.h"
#include "support/endpoints.h"
#include "tests/reports/reports_in_tests.h"
#include "tests/support/host_fixture.h"

namespace zln {
namespace {

using testing::MatchesRegex;

constexpr char kSessionId[] = "00000000-0000-4000-8000-000000000001";

struct SessionKind {
  const char* name;
  const char* url;
  const char* reportType;
  const char* text;
  std::shared_ptr<SessionReport> (*reportWithSession)(const std::shared_ptr<ZLNSession>&);
  std::shared_ptr<SessionReport> (*initWithSession)(const std::shared_ptr<ZLNSession>&);
  std::shared_ptr<SessionReport> (*initWithDictionary)(const Dictionary&);
  std::shared_ptr<SessionReport> (*withBase)(std::optional<Value>);
};

template <typename Kind>
SessionKind kindOf(const char* name, const char* url, const char* reportType, const char* text) {
  return SessionKind{name,
                     url,
                     reportType,
                     text,
                     [](const auto& session) -> std::shared_ptr<SessionReport> {
                       return Kind::reportWithSession(session);
                     },
                     [](const auto& session) -> std::shared_ptr<SessionReport> {
                       return Kind::initWithSession(session);
                     },
                     [](const Dictionary& dictionary) -> std::shared_ptr<SessionReport> {
                       return Kind::initWithDictionary(dictionary);
                     },
                     [](std::optional<Value> base) -> std::shared_ptr<SessionReport> {
                       return std::make_shared<OddReport<Kind>>(std::shared_ptr<ZLNSession>(),
                                                                std::move(base));
                     }};
}

const SessionKind kSessionKinds[] = {
    kindOf<ZLNReportSessionFirst>("First", kSessionFirstUrl, "ReportTypeSessionFirst",
                                  "<ZLNReportSessionFirst: 0x[0-9a-f]+>"),
    kindOf<ZLNReportSessionStart>("Start", kSessionStartUrl, "ReportTypeSessionStart",
                                  "<ZLNReportSessionStart: 0x[0-9a-f]+>"),
    kindOf<ZLNReportSessionStop>("Stop", kSessionStopUrl, "ReportTypeSessionStop",
                                 "<ZLNReportSessionStop: 0x[0-9a-f]+>")};

class SessionReportTest : public HostTest {
 protected:
  SessionReportTest() { env.defaults.set("com.zelnor.sessionUserId", "USER"); }

  static std::shared_ptr<ZLNSession> startedAt(double seconds) {
    return ZLNSession::initWithStartTime(Date{seconds});
  }

  // A session of thirty seconds that is over.
  static std::shared_ptr<ZLNSession> stoppedSession() {
    const auto session = startedAt(1700000000);
    session->pause(Date{1700000030});
    session->stop(Date{1700000030});
    return session;
  }

  // The start view of a session that began at 1700000000, under a type.
  static Dictionary startView(const char* reportType) {
    return Dictionary{{"userId", "USER"},
                      {"country", "DE"},
                      {"type", reportType},
                      {"sessionId", kSessionId},
                      {"startTime", Number::float64(1700000000)},
                      {"device", "iPhone14,5"},
                      {"os", "17.5.1"},
                      {"sdkVersion", "0.0.0"},
                      {"mwVersion", "0.0.0"},
                      {"appVersion", "1.2.3"},
                      {"reportingVersion", "7.0.0"},
                      {"bundleId", "com.example.game"},
                      {"platform", "iOS"}};
  }
};

// Of all three kinds.
class ZLNReportSessionTest : public SessionReportTest,
                             public testing::WithParamInterface<SessionKind> {};

INSTANTIATE_TEST_SUITE_P(Kinds, ZLNReportSessionTest, testing::ValuesIn(kSessionKinds),
                         [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportSessionTest, AFreshReportSharesTheSessionAndGoesToTheEndpointOfItsKind) {
  const auto session = startedAt(1700000000);

  const auto report = GetParam().reportWithSession(session);

  EXPECT_EQ(session, report->session());
  EXPECT_EQ(session, GetParam().initWithSession(session)->session());
  EXPECT_EQ(GetParam().url, report->urlString());
  EXPECT_THAT(report->urlString(), MatchesRegex("https://[^/]+/session"));
  EXPECT_THAT(report->description(), MatchesRegex(GetParam().text));
  EXPECT_EQ(Value("USER"), report->userId());
  EXPECT_EQ("DE", report->country());
  EXPECT_EQ(0, report->temporaryFailureCount());
}

TEST_P(ZLNReportSessionTest, WithoutASessionTheDictionaryIsTheEnvelopeAndTheType) {
  setLevel(5);
  const auto report = GetParam().initWithSession(nullptr);

  EXPECT_EQ(nullptr, report->session());
  EXPECT_EQ((Dictionary{{"userId", "USER"}, {"country", "DE"}, {"type", GetParam().reportType}}),
            report->toDictionary());
  expectLines({});
}

TEST_P(ZLNReportSessionTest, TheTypeFollowsTheEnvelopeAndTheSessionFollowsTheTypeInSilence) {
  setLevel(5);
  const auto report = GetParam().initWithSession(startedAt(1700000000));

  const std::optional<Dictionary> dictionary = report->toDictionary();

  ASSERT_GT(dictionary->size(), 4u);
  EXPECT_EQ("userId", dictionary->entries()[0].first);
  EXPECT_EQ("country", dictionary->entries()[1].first);
  EXPECT_EQ("type", dictionary->entries()[2].first);
  EXPECT_EQ("sessionId", dictionary->entries()[3].first);
  expectLines({});
}

TEST_P(ZLNReportSessionTest, ARestoredReportTakesAllButTypeAndEndpointFromItsDictionary) {
  Dictionary stored = startView("ReportTypeAdAttempt");
  stored.set("urlString", "https://elsewhere.invalid/session");
  stored.set("userId", "EARLIER");
  stored.set("country", "FR");
  stored.set("device", "iPad1,1");
  stored.set("startTime", Number::float64(1700000050));

  const auto report = GetParam().initWithDictionary(stored);

  EXPECT_EQ(GetParam().url, report->urlString());
  EXPECT_EQ(Value(GetParam().reportType), valueIn(*report, "type"));
  EXPECT_EQ(Value("EARLIER"), report->userId());
  EXPECT_EQ("FR", report->country());
  ASSERT_NE(nullptr, report->session());
  EXPECT_EQ(kSessionId, report->session()->uid());
  EXPECT_EQ("iPad1,1", report->session()->device());
  // To a multiple of 128 seconds.
  EXPECT_EQ(Value(Number::float64(1700000000)), valueIn(*report, "startTime"));
}

TEST_P(ZLNReportSessionTest, AStoredDictionaryWithoutASessionStillRestoresAReport) {
  setLevel(5);

  const auto report = GetParam().initWithDictionary({{"userId", "EARLIER"}});

  ASSERT_NE(nullptr, report);
  EXPECT_EQ(nullptr, report->session());
  expectLines({"session dict has no id"});
  EXPECT_EQ((Dictionary{{"userId", "EARLIER"}, {"country", "DE"}, {"type", GetParam().reportType}}),
            report->toDictionary());
}

TEST_P(ZLNReportSessionTest, ABaseThatGivesNoDictionaryLeavesNone) {
  EXPECT_EQ(std::nullopt, GetParam().withBase(std::nullopt)->toDictionary());
  EXPECT_EQ(std::nullopt, GetParam().withBase(Number::int64(5))->toDictionary());
  expectLines({"invalid super serialization (null) ((null))",
               "invalid super serialization 5 (__NSCFNumber)"});
}

TEST_P(ZLNReportSessionTest, TheDictionaryOfTheBaseIsBuiltUpon) {
  const auto report = GetParam().withBase(Dictionary{{"odd", "entry"}, {"type", "other"}});

  EXPECT_EQ((Dictionary{{"odd", "entry"}, {"type", GetParam().reportType}}),
            report->toDictionary());
}

// Of one kind.

TEST_F(SessionReportTest, AFirstReportShowsTheStartViewWhateverTheSessionHasBecome) {
  for (const auto& session : {startedAt(1700000000), stoppedSession()}) {
    Dictionary expected = startView("ReportTypeSessionFirst");
    expected.set("sessionId", session->uid());

    EXPECT_EQ(expected, ZLNReportSessionFirst::reportWithSession(session)->toDictionary());
  }
}

TEST_F(SessionReportTest, AStartReportShowsTheStartViewAsItIsWhenItIsSerialized) {
  const auto session = startedAt(1700000000);
  const auto report = ZLNReportSessionStart::reportWithSession(session);

  EXPECT_EQ(startView("ReportTypeSessionStart"), report->toDictionary());

  session->pause(Date{1700000030});

  EXPECT_EQ(startView("ReportTypeSessionStart"), report->toDictionary());

  session->setMwVersion("2019.4");

  EXPECT_EQ(Value("2019.4"), valueIn(*report, "mwVersion"));
}

TEST_F(SessionReportTest, AStartReportComesBackFromTheFactoryAsItWas) {
  const auto report = ZLNReportSessionStart::reportWithSession(startedAt(1700000000));

  const auto restored = ZLNReportFactory::newReportFromDictionary(*report->toDictionary());

  EXPECT_NE(nullptr, std::dynamic_pointer_cast<ZLNReportSessionStart>(restored));
  EXPECT_EQ(kSessionStartUrl, restored->urlString());
  EXPECT_EQ(startView("ReportTypeSessionStart"), restored->toDictionary());
}

TEST_F(SessionReportTest, AStopReportShowsStopTimeAndDurationAndComesBackWithNarrowedTimes) {
  const auto report = ZLNReportSessionStop::reportWithSession(stoppedSession());

  Dictionary expected = startView("ReportTypeSessionStop");
  expected.set("stopTime", Number::float64(1700000030));
  expected.set("totalDuration", Number::float32(30));
  EXPECT_EQ(expected, report->toDictionary());

  const auto restored = ZLNReportFactory::newReportFromDictionary(*report->toDictionary());

  expected.set("stopTime", Number::float64(1700000000));
  EXPECT_EQ(expected, restored->toDictionary());
}

}  // namespace
}  // namespace zln
