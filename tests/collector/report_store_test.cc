#include "collector/report_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "collector/database.h"
#include "tests/collector/report_samples.h"
#include "tests/support/file_size_limited.h"
#include "tests/support/temporary_folder.h"

namespace zln::collector {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

Answer accepted(const ReportRow&, const nlohmann::json&) { return {}; }

// A JSON object of so many bytes, which are more than its characters.
std::string bodyOf(std::size_t size) {
  const std::string members = "{\"network\":\"\u00C4";
  return members + std::string(size - members.size() - 2, 'x') + "\"}";
}

class ReportStoreTest : public testing::Test {
 protected:
  std::string file() const { return folder_.path() + "/reports.db"; }

  std::unique_ptr<ReportStore> open(const KeepLimits& keep = {}) const {
    return std::make_unique<ReportStore>(file(), keep, ReportSchemas(schemaTexts()));
  }

  void reopen(const KeepLimits& keep = {}) {
    store_.reset();
    store_ = open(keep);
  }

  ReportRow add(const std::string& body) { return store_->add(body, accepted).row; }

  JsonText summary() { return JsonText(textOf(store_->summary())); }
  JsonText timeline(const std::optional<std::string>& user, int limit) {
    return JsonText(textOf(store_->timeline(user, limit)));
  }

  std::vector<std::int64_t> idsOf(const ReportQuery& query) {
    std::vector<std::int64_t> ids;
    for (const ReportRow& row : store_->list(query).reports) ids.push_back(row.id);
    return ids;
  }

  std::vector<std::int64_t> idsWith(const std::string& name, const Json& value) {
    ReportQuery query;
    query.match[name] = static_cast<const nlohmann::json&>(value);
    return idsOf(query);
  }

  const TemporaryFolder folder_;
  std::unique_ptr<ReportStore> store_ = open();
};

TEST_F(ReportStoreTest, TakesAReportIn) {
  const Added added = store_->add(sessionFirst(1, 2), accepted);

  EXPECT_EQ(1, added.row.id);
  EXPECT_EQ(ReportKind::kSessionFirst, added.row.kind);
  EXPECT_EQ(uuid(1), added.row.user);
  EXPECT_EQ(uuid(2), added.row.session);
  EXPECT_EQ(std::nullopt, added.row.event);
  EXPECT_EQ(Verdict::kValid, added.row.verdict);
  EXPECT_EQ(sessionFirst(1, 2), textOf(added.report));
  EXPECT_THAT(added.amended, IsEmpty());
}

TEST_F(ReportStoreTest, GivesAReportBackAsItWasTaken) {
  store_->add(adAttempt(1, 1), accepted);
  const ReportRow row = store_
                            ->add(adAttempt(1, 1),
                                  [](const ReportRow&, const nlohmann::json&) {
                                    return Answer{Answer::Outcome::kRetry, 503, 7};
                                  })
                            .row;

  const auto found = store_->find(2);

  ASSERT_TRUE(found);
  EXPECT_EQ(shown(row).text(), shown(*found).text());
  EXPECT_EQ(adAttempt(1, 1), found->body);
  EXPECT_EQ(Verdict::kDuplicate, found->verdict);
  EXPECT_EQ(7, found->answer.fault);
}

TEST_F(ReportStoreTest, NotesWhenAReportArrived) {
  const auto now = [] {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
  };
  const double before = now();

  const double arrived = add("{}").arrived;

  EXPECT_LE(before, arrived);
  EXPECT_GE(now(), arrived);
}

TEST_F(ReportStoreTest, LetsTheAnswerFollowTheVerdict) {
  const std::string report = with(adAttempt(1, 1), R"({"fill":"yes"})");

  const auto row = store_
                       ->add(report,
                             [&](const ReportRow& judged, const nlohmann::json& parsed) {
                               EXPECT_EQ(1, judged.id);
                               EXPECT_EQ(Verdict::kInvalid, judged.verdict);
                               EXPECT_EQ(report, textOf(parsed));
                               return Answer{Answer::Outcome::kDropped, 200, {}};
                             })
                       .row;

  EXPECT_EQ(Answer::Outcome::kDropped, row.answer.outcome);
  EXPECT_EQ(Answer::Outcome::kDropped, store_->find(1)->answer.outcome);
}

TEST_F(ReportStoreTest, TakesNothingInWhenThereIsNoAnswer) {
  EXPECT_THROW(store_->add(adAttempt(1, 1),
                           [](const ReportRow&, const nlohmann::json&) -> Answer {
                             throw std::runtime_error("no answer");
                           }),
               std::runtime_error);

  EXPECT_EQ(0, store_->list({}).total);
  const ReportRow next = add(adAttempt(1, 1));
  EXPECT_EQ(1, next.id);
  EXPECT_EQ(Verdict::kValid, next.verdict);
}

TEST_F(ReportStoreTest, SaysThatABodyIsNoReport) {
  const Added added = store_->add("no JSON", accepted);

  EXPECT_EQ(ReportKind::kUnknown, added.row.kind);
  EXPECT_EQ(Verdict::kInvalid, added.row.verdict);
  EXPECT_EQ("null", textOf(added.report));
  ASSERT_THAT(added.row.findings, SizeIs(1));
  EXPECT_EQ("unreadable", added.row.findings[0].code);
}

TEST_F(ReportStoreTest, ChecksTheSchema) {
  const ReportRow row = add(without(adAttempt(1, 1), "network"));

  ASSERT_THAT(row.findings, SizeIs(1));
  EXPECT_EQ("schema", row.findings[0].code);
  EXPECT_EQ("\"network\" is missing", row.findings[0].text);
}

TEST_F(ReportStoreTest, FindsNoOtherReport) {
  add("{}");

  EXPECT_FALSE(store_->find(0));
  EXPECT_FALSE(store_->find(2));
}

TEST_F(ReportStoreTest, KeepsWhatItHasOverARestart) {
  const ReportRow row = add(adAttempt(1, 1));

  reopen();

  EXPECT_EQ(shown(row).text(), shown(*store_->find(1)).text());
  EXPECT_EQ(2, add(adAttempt(1, 2)).id);
}

TEST_F(ReportStoreTest, JudgesInTheLightOfWhatCameBeforeARestart) {
  add(sessionFirst(1, 1));
  add(adAttempt(1, 1));

  reopen();

  EXPECT_EQ(Verdict::kDuplicate, add(sessionFirst(1, 1)).verdict);
  EXPECT_EQ(Verdict::kDuplicate, add(adAttempt(1, 1)).verdict);
  EXPECT_TRUE(hasFinding(add(sessionFirst(1, 2)).findings, "second-first-session"));
  EXPECT_EQ(Verdict::kValid, add(sessionStop(1, 1)).verdict);
}

TEST_F(ReportStoreTest, AmendsAStopWhoseStartComesLater) {
  EXPECT_EQ(Verdict::kSuspect, add(sessionStop(1, 1)).verdict);

  const Added start = store_->add(sessionStart(1, 1), accepted);

  ASSERT_THAT(start.amended, SizeIs(1));
  EXPECT_EQ(1, start.amended[0].id);
  EXPECT_EQ(Verdict::kValid, start.amended[0].verdict);
  EXPECT_THAT(start.amended[0].findings, IsEmpty());
  EXPECT_EQ(shown(start.amended[0]).text(), shown(*store_->find(1)).text());
}

TEST_F(ReportStoreTest, AmendsAStopFromBeforeARestart) {
  add(with(sessionStop(1, 1), R"({"startTime":1795238144})"));

  reopen();
  const Added start = store_->add(sessionFirst(1, 1), accepted);
  reopen();

  ASSERT_THAT(start.amended, SizeIs(1));
  const auto stop = store_->find(1);
  EXPECT_EQ(Verdict::kValid, stop->verdict);
  ASSERT_THAT(stop->findings, SizeIs(1));
  EXPECT_EQ("rounded-date", stop->findings[0].code);
}

TEST_F(ReportStoreTest, AmendsEveryCopyOfAStop) {
  add(sessionStop(1, 1));
  add(sessionStop(1, 1));

  const Added start = store_->add(sessionStart(1, 1), accepted);

  ASSERT_THAT(start.amended, SizeIs(2));
  EXPECT_EQ(Verdict::kValid, start.amended[0].verdict);
  EXPECT_EQ(Verdict::kDuplicate, start.amended[1].verdict);
}

TEST_F(ReportStoreTest, ChangesAnAnswerAfterwards) {
  add(adAttempt(1, 1));

  store_->setAnswer(1, {Answer::Outcome::kCut, 0, 3});

  EXPECT_EQ(R"({"fault":3,"outcome":"cut","status":0})", shown(*store_->find(1))["answer"]);
}

TEST_F(ReportStoreTest, ListsReportsInTheOrderOfTheirArrival) {
  for (int i = 1; i <= 5; ++i) add(adAttempt(1, i));
  ReportQuery newestFirst;
  newestFirst.newestFirst = true;

  EXPECT_THAT(idsOf({}), ElementsAre(1, 2, 3, 4, 5));
  EXPECT_THAT(idsOf(newestFirst), ElementsAre(5, 4, 3, 2, 1));
}

TEST_F(ReportStoreTest, ListsAPageAtATime) {
  for (int i = 1; i <= 5; ++i) add(adAttempt(1, i));
  ReportQuery query;
  query.limit = 2;
  query.after = 2;

  const ReportList page = store_->list(query);
  query.after = 3;
  const ReportList last = store_->list(query);

  ASSERT_THAT(page.reports, SizeIs(2));
  EXPECT_EQ(3, page.reports[0].id);
  EXPECT_EQ(3, page.total);
  EXPECT_TRUE(page.more);
  EXPECT_THAT(last.reports, SizeIs(2));
  EXPECT_EQ(2, last.total);
  EXPECT_FALSE(last.more);
}

TEST_F(ReportStoreTest, ListsWhatIsAskedFor) {
  add(sessionFirst(1, 11));
  add(adAttempt(1, 21));
  add(adAttempt(2, 22));
  add(adAttempt(2, 22));
  add(sessionStop(2, 12));
  ReportQuery kind, verdict, user, session, before, several;
  kind.kind = ReportKind::kAdAttempt;
  verdict.verdict = Verdict::kSuspect;
  user.user = uuid(2);
  session.session = uuid(11);
  before.before = 3;
  several.user = uuid(2);
  several.kind = ReportKind::kAdAttempt;
  several.verdict = Verdict::kValid;

  EXPECT_THAT(idsOf(kind), ElementsAre(2, 3, 4));
  EXPECT_THAT(idsOf(verdict), ElementsAre(5));
  EXPECT_THAT(idsOf(user), ElementsAre(3, 4, 5));
  EXPECT_THAT(idsOf(session), ElementsAre(1));
  EXPECT_THAT(idsOf(before), ElementsAre(1, 2));
  EXPECT_THAT(idsOf(several), ElementsAre(3));
}

TEST_F(ReportStoreTest, ListsReportsWithATextInTheirBody) {
  add(adAttempt(1, 1));
  add(std::string("\xFF\0Sun'rise%", 11));
  ReportQuery query;

  query.text = "Sunrise";
  EXPECT_THAT(idsOf(query), ElementsAre(1));
  query.text = "sunrise";
  EXPECT_THAT(idsOf(query), IsEmpty());
  query.text = std::string("\0Sun'", 5);
  EXPECT_THAT(idsOf(query), ElementsAre(2));
  query.text = "Sun%";
  EXPECT_THAT(idsOf(query), IsEmpty());
  query.text = "";
  EXPECT_THAT(idsOf(query), ElementsAre(1, 2));
}

TEST_F(ReportStoreTest, ListsReportsByTheValuesOfTheirMembers) {
  add(R"({"a": 1, "b": "x"})");
  add(R"({"a": 1.0, "b": {"c": [1]}})");
  add(R"({"a": "1", "b": null})");
  add(R"({"\u0061": true, "b": "\u0078"})");
  add(R"(a: 1)");

  EXPECT_THAT(idsWith("a", "1"), ElementsAre(1, 2));
  EXPECT_THAT(idsWith("a", R"("1")"), ElementsAre(3));
  EXPECT_THAT(idsWith("a", "true"), ElementsAre(4));
  EXPECT_THAT(idsWith("b", R"("x")"), ElementsAre(1, 4));
  EXPECT_THAT(idsWith("b", R"({"c":[1]})"), ElementsAre(2));
  EXPECT_THAT(idsWith("b", "null"), ElementsAre(3));
  EXPECT_THAT(idsWith("c", "null"), IsEmpty());
}

TEST_F(ReportStoreTest, ListsReportsWithSeveralMembers) {
  for (int i = 1; i <= 3; ++i) add(adAttempt(1, i));
  add(with(adAttempt(1, 4), R"({"network":"Flicker \"A\""})"));
  ReportQuery query;
  query.match["network"] = "Sunrise";
  query.match["fill"] = true;
  query.limit = 2;

  const ReportList list = store_->list(query);

  EXPECT_THAT(list.reports, SizeIs(2));
  EXPECT_EQ(3, list.total);
  EXPECT_TRUE(list.more);
  EXPECT_THAT(idsWith("network", R"("Flicker \"A\"")"), ElementsAre(4));
}

TEST_F(ReportStoreTest, TakesNoTextForSql) {
  const std::string text = "'; DROP TABLE reports; --";
  add(with(adAttempt(1, 1), R"({"userId":")" + text + R"(","network":")" + text + R"("})"));
  ReportQuery query;
  query.user = text;
  query.text = text;
  query.match["network"] = text;

  EXPECT_THAT(idsOf(query), ElementsAre(1));
  EXPECT_EQ("1", summary()["installations"]);
  EXPECT_EQ(text, timeline(text, 10)["installations/0/user"]);
  query.session = "' OR 1=1 --";
  EXPECT_THAT(idsOf(query), IsEmpty());
}

TEST_F(ReportStoreTest, KeepsTheNewest) {
  reopen({.reports = 3});
  for (int i = 1; i <= 5; ++i) add(adAttempt(1, i));

  EXPECT_THAT(idsOf({}), ElementsAre(3, 4, 5));
  EXPECT_EQ("3", summary()["reports"]);
  reopen({.reports = 2});
  EXPECT_THAT(idsOf({}), ElementsAre(4, 5));
}

TEST_F(ReportStoreTest, ForgetsWhatItDoesNotKeep) {
  reopen({.reports = 3});
  add(adAttempt(1, 1));
  EXPECT_EQ(Verdict::kDuplicate, add(adAttempt(1, 1)).verdict);
  for (int i = 2; i <= 4; ++i) add(adAttempt(1, i));

  EXPECT_EQ(Verdict::kValid, add(adAttempt(1, 1)).verdict);
  EXPECT_EQ(Verdict::kDuplicate, add(adAttempt(1, 4)).verdict);
}

TEST_F(ReportStoreTest, ListsNoMoreThanFitsIntoMemory) {
  for (int i = 1; i <= 20; ++i) add(std::string(1024 * 1024, 'x'));
  ReportQuery query;
  query.limit = 1000;

  const ReportList first = store_->list(query);
  EXPECT_THAT(first.reports, SizeIs(16));
  EXPECT_TRUE(first.more);
  EXPECT_EQ(20, first.total);
  query.after = first.reports.back().id;
  const ReportList second = store_->list(query);
  EXPECT_THAT(second.reports, SizeIs(4));
  EXPECT_FALSE(second.more);
}

TEST_F(ReportStoreTest, KeepsNoMoreBytesThanItMay) {
  reopen({.bytes = 1000});
  add(bodyOf(400));
  add(bodyOf(600));
  EXPECT_THAT(idsOf({}), ElementsAre(1, 2));
  add("x");
  EXPECT_THAT(idsOf({}), ElementsAre(2, 3));
  add(std::string(400, '\xFF'));
  EXPECT_THAT(idsOf({}), ElementsAre(3, 4));
  EXPECT_EQ("2", summary()["reports"]);

  reopen({.bytes = 400});
  EXPECT_THAT(idsOf({}), ElementsAre(4));
}

TEST_F(ReportStoreTest, KnowsHowManyBytesItHasAfterARestart) {
  for (int i = 1; i <= 3; ++i) add(bodyOf(300));

  reopen({.bytes = 1000});
  add(bodyOf(100));
  EXPECT_THAT(idsOf({}), ElementsAre(1, 2, 3, 4));
  add("x");
  EXPECT_THAT(idsOf({}), ElementsAre(2, 3, 4, 5));
}

TEST_F(ReportStoreTest, HasNoBytesAfterAClearing) {
  reopen({.bytes = 1000});
  add(bodyOf(900));

  store_->clear();
  add(bodyOf(400));
  add(bodyOf(600));

  EXPECT_THAT(idsOf({}), ElementsAre(2, 3));
}

TEST_F(ReportStoreTest, KeepsAReportThatIsLargerThanAllMayBe) {
  reopen({.bytes = 1000});
  add("x");
  add(bodyOf(5000));
  EXPECT_THAT(idsOf({}), ElementsAre(2));
  add(bodyOf(5000));
  EXPECT_THAT(idsOf({}), ElementsAre(3));

  reopen({.bytes = 1000});
  EXPECT_THAT(idsOf({}), ElementsAre(3));
  add("x");
  add("y");
  EXPECT_THAT(idsOf({}), ElementsAre(4, 5));
}

TEST_F(ReportStoreTest, ForgetsWhatHasNoRoom) {
  reopen({.bytes = 1000});
  add(adAttempt(1, 1));
  EXPECT_EQ(Verdict::kDuplicate, add(adAttempt(1, 1)).verdict);
  add(bodyOf(1000));

  EXPECT_EQ(Verdict::kValid, add(adAttempt(1, 1)).verdict);
}

TEST_F(ReportStoreTest, ForgetsAllWhenCleared) {
  add(sessionFirst(1, 1));
  add(adAttempt(1, 1));

  store_->clear();

  EXPECT_EQ(0, store_->list({}).total);
  EXPECT_EQ(Verdict::kValid, add(adAttempt(1, 1)).verdict);
  EXPECT_EQ(Verdict::kValid, add(sessionFirst(1, 2)).verdict);
}

TEST_F(ReportStoreTest, NeverGivesAnIdentifierTwice) {
  add("{}");
  add("{}");
  store_->clear();
  EXPECT_EQ(3, add("{}").id);
  store_->clear();

  reopen();

  EXPECT_EQ(4, add("{}").id);
}

TEST_F(ReportStoreTest, CountsReports) {
  add(sessionFirst(1, 1));
  add(adAttempt(1, 1));
  add(adAttempt(1, 1));
  add(with(adZoneAttempt(2, 2), R"({"fill":false})"));
  add(with(adAttempt(2, 3), R"({"network":"Flicker"})"));
  add(with(adAttempt(2, 3), R"({"platform":"Android"})"));
  add("no JSON");
  store_->setAnswer(7, {Answer::Outcome::kDropped, 200, {}});

  EXPECT_EQ(R"({"byKind":{"ad-attempt":4,"ad-zone-attempt":1,"session-first":1,)"
            R"("session-start":0,"session-stop":0,"unknown":1},)"
            R"("byOutcome":{"accepted":6,"cut":0,"dropped":1,"other":0,"retry":0},)"
            R"("byVerdict":{"duplicate":1,"invalid":2,"suspect":0,"valid":4},)"
            R"("duplicates":2,)"
            R"("fill":[{"adType":"banner","attempts":1,"filled":1,"network":"Flicker"},)"
            R"({"adType":"banner","attempts":2,"filled":1,"network":"Sunrise"}],)"
            R"("installations":2,"reports":7,"sessions":1,)"
            R"("verdicts":{"ad-attempt":{"duplicate":1,"invalid":1,"suspect":0,"valid":2},)"
            R"("ad-zone-attempt":{"duplicate":0,"invalid":0,"suspect":0,"valid":1},)"
            R"("session-first":{"duplicate":0,"invalid":0,"suspect":0,"valid":1},)"
            R"("session-start":{"duplicate":0,"invalid":0,"suspect":0,"valid":0},)"
            R"("session-stop":{"duplicate":0,"invalid":0,"suspect":0,"valid":0},)"
            R"("unknown":{"duplicate":0,"invalid":1,"suspect":0,"valid":0}}})",
            summary().text());
}

TEST_F(ReportStoreTest, TellsTheStoryOfAnInstallation) {
  add(sessionFirst(1, 1));
  add(adZoneAttempt(1, 1));
  add(adZoneAttempt(1, 1));
  add(sessionStop(1, 1));
  add(sessionStart(1, 2));
  add(adAttempt(1, 2));
  const JsonText first(sessionFirst(1, 1)), stop(sessionStop(1, 1)), second(sessionStart(1, 2));
  const auto arrivalOf = [&](int id) { return shown(*store_->find(id))["arrived"]; };

  const JsonText story = timeline({}, 10);

  EXPECT_EQ("false", story["truncated"]);
  EXPECT_THAT(story.each("installations", "user"), ElementsAre(uuid(1)));
  const JsonText shown(story["installations/0"]);
  EXPECT_EQ("com.example.starhopper", shown["bundleId"]);
  EXPECT_EQ("1.4.2", shown["appVersion"]);
  EXPECT_EQ(arrivalOf(1), shown["firstSeen"]);
  EXPECT_EQ(R"([{"first":true,"played":5.25,"session":")" + uuid(1) + R"(","start":)" +
                first["startTime"] + R"(,"stop":)" + stop["stopTime"] + R"(,"stopArrived":)" +
                arrivalOf(4) + R"(},{"first":false,"played":null,"session":")" + uuid(2) +
                R"(","start":)" + second["startTime"] + R"(,"stop":null,"stopArrived":null}])",
            shown["sessions"]);
  EXPECT_EQ(R"([{"adType":"banner","arrived":)" + arrivalOf(2) +
                R"(,"fill":true,"id":2,"network":"Sunrise","zoneId":"main menu"},)"
                R"({"adType":"banner","arrived":)" +
                arrivalOf(6) + R"(,"fill":true,"id":6,"network":"Sunrise","zoneId":null}])",
            shown["ads"]);
}

TEST_F(ReportStoreTest, TellsOfASessionWhatItsStopKnows) {
  add(sessionStop(1, 1));

  const JsonText story = timeline({}, 10);

  EXPECT_EQ(JsonText(sessionStop(1, 1))["startTime"], story["installations/0/sessions/0/start"]);
  EXPECT_EQ(JsonText(sessionStop(1, 1))["stopTime"], story["installations/0/sessions/0/stop"]);
}

TEST_F(ReportStoreTest, ShowsTheLatestInstallationsFirst) {
  for (const int user : {1, 2, 3, 1}) add(adAttempt(user, user * 10));

  EXPECT_THAT(timeline({}, 2).each("installations", "user"), ElementsAre(uuid(1), uuid(3)));
  EXPECT_EQ("true", timeline({}, 2)["truncated"]);
  EXPECT_THAT(timeline(uuid(2), 2).each("installations", "user"), ElementsAre(uuid(2)));
  EXPECT_EQ("false", timeline(uuid(2), 2)["truncated"]);
}

TEST_F(ReportStoreTest, LeavesWhatIsIncompleteOutOfTheStory) {
  add(without(adAttempt(1, 1), "network"));
  add(with(sessionStart(1, 1), R"({"startTime":"today"})"));

  EXPECT_EQ("[]", timeline({}, 10)["installations/0/sessions"]);
  EXPECT_EQ("[]", timeline({}, 10)["installations/0/ads"]);
}

TEST_F(ReportStoreTest, ShowsOnlyTheNewestReportsOfABusyInstallation) {
  for (int i = 1; i <= 2001; ++i) add(adAttempt(1, i));

  const JsonText story = timeline({}, 10);

  const auto ads = story.each("installations/0/ads", "id");
  EXPECT_EQ("true", story["truncated"]);
  ASSERT_THAT(ads, SizeIs(2000));
  EXPECT_EQ("2", ads.front());
  EXPECT_EQ("2001", ads.back());
}

TEST_F(ReportStoreTest, TakesAnyBody) {
  const std::string deep = std::string(200000, '[') + std::string(200000, ']');
  const std::vector<std::string> bodies = {
      "",
      std::string("\0", 1),
      std::string("{\"a\":\"\0\"}", 9),
      "\xFF\xFE{}",
      "{\"a\":\"\xC3\x28\"}",
      R"({"userId":"\u0000\u0001","type":"ReportTypeAdAttempt"})",
      R"({"userId":"\uD800"})",
      R"({"startTime":1e400,"type":"ReportTypeSessionStop"})",
      R"({"startTime":-1.7976931348623157e308,"stopTime":1.7e308,"type":"ReportTypeSessionStop"})",
      R"({"startTime":123456789012345678901234567890,"type":"ReportTypeSessionStart"})",
      R"({"type":["ReportTypeAdAttempt"],"userId":{"a":1}})",
      R"({"type":"ReportTypeAdAttempt","type":"ReportTypeSessionStop"})",
      "'; DROP TABLE reports; --",
      deep,
      R"({"type":"ReportTypeAdAttempt","x":)" + deep + "}",
      R"({"userId":")" + std::string(1048576 - 13, 'x') + R"("})",
      std::string(1048576, '\x80'),
  };

  for (const std::string& body : bodies) EXPECT_EQ(Verdict::kInvalid, add(body).verdict);

  reopen();
  EXPECT_EQ(std::ssize(bodies), store_->list({}).total);
  for (std::size_t i = 0; i < bodies.size(); ++i) {
    const auto row = store_->find(static_cast<std::int64_t>(i) + 1);
    ASSERT_TRUE(row);
    EXPECT_TRUE(bodies[i] == row->body) << bodies[i].substr(0, 100);
    EXPECT_NO_THROW(shown(*row)) << bodies[i].substr(0, 100);
  }
  EXPECT_NO_THROW(summary());
  EXPECT_NO_THROW(timeline({}, 100));
}

TEST_F(ReportStoreTest, IsForItsOwnerOnly) {
  add("{}");
  store_->flush();

  for (const char* suffix : {"", "-wal", "-shm"}) {
    struct stat status;
    ASSERT_EQ(0, stat((file() + suffix).c_str(), &status)) << suffix;
    EXPECT_EQ(0600u, status.st_mode & 0777u) << suffix;
  }
}

TEST_F(ReportStoreTest, IsUsedByOneCollectorAtATime) {
  try {
    open();
    FAIL() << "a second store was opened";
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("is in use by another collector"));
  }

  store_.reset();
  EXPECT_NO_THROW(open());
}

// Many threads add while others look: every report has an identifier of its own and none is lost.
TEST_F(ReportStoreTest, TakesReportsOfManyThreads) {
  constexpr int kThreads = 8;
  constexpr int kReports = 150;
  std::vector<std::vector<std::int64_t>> ids(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kReports; ++i) {
        ids[static_cast<std::size_t>(t)].push_back(add(adAttempt(t, t * 1000 + i)).id);
        if (i % 50 == 0) store_->summary();
        if (i % 50 == 25) {
          EXPECT_TRUE(store_->find(ids[static_cast<std::size_t>(t)].back()));
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();

  std::set<std::int64_t> all;
  for (const auto& own : ids) {
    EXPECT_TRUE(std::is_sorted(own.begin(), own.end()));
    all.insert(own.begin(), own.end());
  }
  EXPECT_THAT(all, SizeIs(kThreads * kReports));
  EXPECT_EQ(1, *all.begin());
  EXPECT_EQ(kThreads * kReports, *all.rbegin());
  EXPECT_EQ(kThreads * kReports, store_->list({}).total);
  EXPECT_EQ(std::to_string(kThreads * kReports), summary()["byVerdict/valid"]);
}

// One transaction for each report would write the same pages again and again: 4 MB.
TEST_F(ReportStoreTest, WritesWhatHasGatheredAtOnce) {
  std::vector<std::string> reports;
  for (int i = 1; i <= 300; ++i) reports.push_back(adAttempt(1, i));
  store_->flush();
  {
    Database other(file());
    Transaction lock(other, /*writes=*/true);
    for (const std::string& report : reports) add(report);
  }

  store_->flush();

  EXPECT_EQ(300, store_->list({}).total);
  EXPECT_GT(1024u * 1024, std::filesystem::file_size(file() + "-wal"));
}

TEST_F(ReportStoreTest, KeepsABoundedSizeUnwritten) {
  const std::string large(1024 * 1024, 'a');
  store_->flush();
  std::atomic<int> added = 0;
  std::future<void> adding;
  {
    Database other(file());
    Transaction lock(other, /*writes=*/true);
    adding = std::async(std::launch::async, [&] {
      for (; added < 66; ++added) add(large);
    });
    while (added < 64) std::this_thread::yield();
    EXPECT_EQ(std::future_status::timeout, adding.wait_for(std::chrono::milliseconds(200)));
    EXPECT_EQ(64, added);
  }

  adding.get();
  EXPECT_EQ(66, store_->list({}).total);
}

TEST_F(ReportStoreTest, TriesAgainWhenTheDiskIsFull) {
  add(adAttempt(1, 1));
  store_->flush();
  std::int64_t taken = 1;
  std::string failure;
  {
    const FileSizeLimited limited(512 * 1024);
    for (int i = 2; i < 20000 && failure.empty(); ++i) {
      try {
        taken = add(adAttempt(1, i)).id;
        store_->flush();
      } catch (const std::runtime_error& error) {
        failure = error.what();
      }
    }
    EXPECT_THROW(store_->list({}), std::runtime_error);
  }

  EXPECT_THAT(failure, HasSubstr("reports.db"));
  for (int tries = 0; tries < 600; ++tries) {
    try {
      store_->flush();
      break;
    } catch (const std::runtime_error&) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }
  EXPECT_EQ(taken, store_->list({}).total);
  EXPECT_EQ(taken + 1, add("{}").id);
}

class ReportStoreFileTest : public ReportStoreTest {
 protected:
  ReportStoreFileTest() { store_.reset(); }

  void write(const std::string& contents) const { std::ofstream(file()) << contents; }

  std::string contents() const {
    std::ifstream stream(file());
    return std::string(std::istreambuf_iterator<char>(stream), {});
  }

  std::string failureToOpen() const {
    try {
      open();
      return "none";
    } catch (const std::runtime_error& error) {
      return error.what();
    }
  }
};

TEST_F(ReportStoreFileTest, IsBegunWhenItIsEmpty) {
  write("");

  EXPECT_EQ("none", failureToOpen());
}

TEST_F(ReportStoreFileTest, IsLeftAloneWhenItIsNoDatabase) {
  const std::string text(5000, 'x');
  write(text);

  EXPECT_THAT(failureToOpen(), testing::AllOf(HasSubstr("reports.db"), HasSubstr("not a database"),
                                              HasSubstr("move it away")));
  EXPECT_EQ(text, contents());
}

TEST_F(ReportStoreFileTest, IsLeftAloneWhenItIsAnothersDatabase) {
  std::filesystem::remove(file());
  {
    write("");
    Database other(file());
    other.run("CREATE TABLE recipes (name TEXT); INSERT INTO recipes VALUES ('bread');");
  }
  const std::string before = contents();

  EXPECT_THAT(failureToOpen(), HasSubstr("is the database of another program"));
  EXPECT_EQ(before, contents());
}

TEST_F(ReportStoreFileTest, IsLeftAloneWhenItIsOfALaterVersion) {
  open()->add("{}", accepted);
  Database(file()).run("PRAGMA user_version = 2");

  EXPECT_THAT(failureToOpen(), HasSubstr("newer zln-collector"));
}

TEST_F(ReportStoreFileTest, IsLeftAloneWhenItIsDamaged) {
  {
    const auto store = open();
    for (int i = 0; i < 500; ++i) store->add(adAttempt(1, i), accepted);
  }
  std::string damaged = contents();
  for (std::size_t i = 4096; i < damaged.size(); ++i) damaged[i] = static_cast<char>(i * 31);
  write(damaged);

  EXPECT_THAT(failureToOpen(), testing::AllOf(HasSubstr("reports.db"), HasSubstr("malformed"),
                                              HasSubstr("move it away")));
  EXPECT_EQ(damaged, contents());
}

TEST_F(ReportStoreFileTest, IsNamedWhenItCannotBeMade) {
  std::filesystem::create_directory(folder_.path() + "/folder");

  EXPECT_THROW(
      ReportStore(folder_.path() + "/missing/reports.db", {}, ReportSchemas(schemaTexts())),
      std::runtime_error);
  EXPECT_THROW(ReportStore(folder_.path() + "/folder", {}, ReportSchemas(schemaTexts())),
               std::runtime_error);
}

// Adds reports until it is killed, and tells after every 20 that they are in the file.
[[noreturn]] void addForever(const std::string& file, int told) {
  ReportStore store(file, {}, ReportSchemas(schemaTexts()));
  for (int i = 0;; ++i) {
    const std::int64_t id = store.add(adAttempt(1, i), accepted).row.id;
    if (i % 20 != 19) continue;
    store.flush();
    if (::write(told, &id, sizeof id) != sizeof id) _exit(EXIT_FAILURE);
  }
}

// The last identifier that a child tells of before it is killed, which happens after `count`.
std::int64_t lastToldBeforeKill(const std::string& file, int count) {
  int pipe[2];
  EXPECT_EQ(0, ::pipe(pipe));
  const pid_t child = fork();
  if (child == 0) addForever(file, pipe[1]);
  close(pipe[1]);
  std::int64_t last = 0;
  for (int i = 0; i < count; ++i)
    EXPECT_EQ(ssize_t{sizeof last}, read(pipe[0], &last, sizeof last));
  kill(child, SIGKILL);
  for (std::int64_t told; read(pipe[0], &told, sizeof told) == ssize_t{sizeof told};) last = told;
  close(pipe[0]);
  waitpid(child, nullptr, 0);
  return last;
}

TEST_F(ReportStoreFileTest, SurvivesKills) {
  std::int64_t highest = 0;
  for (const int count : {1, 2, 5, 11, 23}) {
    const std::int64_t told = lastToldBeforeKill(file(), count);
    const auto store = open();
    ReportQuery newest;
    newest.newestFirst = true;
    newest.limit = 1;

    const ReportList list = store->list(newest);

    ASSERT_THAT(list.reports, SizeIs(1));
    EXPECT_LE(told, list.reports[0].id);
    EXPECT_EQ(list.reports[0].id, list.total) << "some are missing";
    EXPECT_LT(highest, list.total);
    highest = store->add("{}", accepted).row.id;
    EXPECT_EQ(list.total + 1, highest);
  }
  Database database(file());
  Statement check = database.prepare("PRAGMA integrity_check");
  ASSERT_TRUE(check.step());
  EXPECT_EQ("ok", check.text(0));
}

}  // namespace
}  // namespace zln::collector
