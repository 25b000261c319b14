#include "transport/queued_reports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/property_list.h"
#include "reports/ZLNReportSessionStart.h"
#include "support/endpoints.h"
#include "tests/support/sent_reports.h"
#include "tests/transport/reporting_test.h"
#include "transport/ZLNReportOperationBase.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Reports = std::vector<std::shared_ptr<ZLNReportBase>>;

constexpr char kUnexpected[] = "ZLN Session: unexpected report in op queue: foreign operation";
constexpr char kNoReport[] = "ZLN Session: unable to serialize report (null)";

// A place in the queue that is no report's.
class ForeignOperation : public ZLNAsynchronousOperation {
 public:
  std::string description() const override { return "foreign operation"; }
};

class QueuedReportsTest : public ReportingTest {
 protected:
  QueuedReportsTest() {
    setLevel(3);
    queue.setSuspended(true);
  }

  std::shared_ptr<ZLNReportOperationBase> add(std::shared_ptr<ZLNReportBase> report) {
    auto operation = ZLNReportOperationBase::initWithReport(std::move(report), false, nullptr);
    queue.addOperation(operation);
    return operation;
  }

  std::shared_ptr<ZLNReportOperationBase> addAd(const std::string& network) {
    return add(adReport(network));
  }

  // Lists the queue and ends the list; returns the dictionaries.
  std::vector<Dictionary> list(const Reports& left = {}) {
    image.begin();
    reports.follow(queue);
    reports.list(left, image);
    EXPECT_TRUE(image.finish());
    image.written();
    const std::optional<Value> root = property_list::read(image.text());
    std::vector<Dictionary> dictionaries;
    for (const Value& element : *root->array()) dictionaries.push_back(*element.dictionary());
    return dictionaries;
  }

  std::vector<std::string> networks(const Reports& left = {}) {
    std::vector<std::string> names;
    for (const Dictionary& report : list(left)) names.push_back(textOf(report, "network"));
    return names;
  }

  // How much of the text the next list, which is the same, takes over from the last one.
  std::size_t unchangedBytes() {
    image.begin();
    reports.follow(queue);
    reports.list({}, image);
    EXPECT_TRUE(image.finish());
    return image.unchanged().head;
  }

  std::size_t allBytesOfElements() const {
    return image.text().size() - std::string("</array>\n").size() -
           property_list::kDocumentTail.size();
  }

  OperationQueue queue{env.dispatch};
  QueuedReports reports;
  ReportFileImage image;
};

TEST_F(QueuedReportsTest, AnEmptyQueueListsNothing) {
  EXPECT_THAT(networks(), IsEmpty());

  EXPECT_EQ(0u, image.count());
}

TEST_F(QueuedReportsTest, ListsTheReportsInTheOrderOfAdding) {
  addAd("a");
  addAd("b");
  addAd("c");

  EXPECT_THAT(networks(), ElementsAre("a", "b", "c"));
}

TEST_F(QueuedReportsTest, ListsTheSameReportsAgain) {
  addAd("a");
  addAd("b");
  list();

  EXPECT_THAT(networks(), ElementsAre("a", "b"));
}

TEST_F(QueuedReportsTest, ListsARunningReport) {
  queue.setSuspended(false);
  addAd("a");
  env.dispatch.runGlobal();

  EXPECT_THAT(networks(), ElementsAre("a"));
}

TEST_F(QueuedReportsTest, ListsBehindTheOthersWhatHasComeSince) {
  addAd("a");
  list();
  addAd("b");
  addAd("c");

  EXPECT_THAT(networks(), ElementsAre("a", "b", "c"));
}

// Departures.

TEST_F(QueuedReportsTest, OneHasLeftFromTheFront) {
  const auto a = addAd("a");
  addAd("b");
  addAd("c");
  list();

  a->completeOperation();

  EXPECT_THAT(networks(), ElementsAre("b", "c"));
}

TEST_F(QueuedReportsTest, OneHasLeftFromTheMiddle) {
  addAd("a");
  const auto b = addAd("b");
  addAd("c");
  list();

  b->completeOperation();

  EXPECT_THAT(networks(), ElementsAre("a", "c"));
}

TEST_F(QueuedReportsTest, OneHasLeftFromTheEnd) {
  addAd("a");
  addAd("b");
  const auto c = addAd("c");
  list();

  c->completeOperation();

  EXPECT_THAT(networks(), ElementsAre("a", "b"));
}

TEST_F(QueuedReportsTest, AllHaveLeft) {
  const auto a = addAd("a");
  const auto b = addAd("b");
  list();

  b->completeOperation();
  a->completeOperation();

  EXPECT_THAT(networks(), IsEmpty());
}

// It may have come to be held, by someone who reads what is held before.
TEST_F(QueuedReportsTest, OneThatLeavesWhileTheListIsMadeIsListed) {
  const auto leaving = addAd("leaving");
  addAd("staying");

  image.begin();
  reports.follow(queue);
  leaving->completeOperation();
  reports.list({}, image);
  EXPECT_TRUE(image.finish());

  EXPECT_EQ(2u, image.count());
  EXPECT_THAT(networks(), ElementsAre("staying"));
}

TEST_F(QueuedReportsTest, OneHasComeAndLeftBetweenTwoLists) {
  addAd("a");
  list();

  addAd("b")->completeOperation();

  EXPECT_THAT(networks(), ElementsAre("a"));
}

TEST_F(QueuedReportsTest, OthersComeWhenOneHasLeft) {
  addAd("a");
  const auto b = addAd("b");
  addAd("c");
  list();

  b->completeOperation();
  addAd("d");
  addAd("e");

  EXPECT_THAT(networks(), ElementsAre("a", "c", "d", "e"));
}

TEST_F(QueuedReportsTest, OthersComeAfterAListWithoutTheOneThatHasLeft) {
  const auto a = addAd("a");
  addAd("b");
  list();
  a->completeOperation();
  list();

  addAd("c");

  EXPECT_THAT(networks(), ElementsAre("b", "c"));
}

TEST_F(QueuedReportsTest, OthersComeAfterAllHaveLeft) {
  addAd("a")->completeOperation();
  list();

  addAd("b");

  EXPECT_THAT(networks(), ElementsAre("b"));
}

TEST_F(QueuedReportsTest, AReportThatHasLeftIsLetGo) {
  const auto operation = addAd("a");
  const std::weak_ptr<ZLNReportBase> report = operation->report();
  list();
  operation->completeOperation();
  operation->setReport(nullptr);
  list();

  EXPECT_TRUE(report.expired());
}

TEST_F(QueuedReportsTest, AReportThatIsQueuedAgainIsListedInItsNewPlace) {
  const auto a = addAd("a");
  addAd("b");
  list();

  a->completeOperation();
  add(a->report());

  EXPECT_THAT(networks(), ElementsAre("b", "a"));
}

// Reports that are left out.

TEST_F(QueuedReportsTest, ListsNothingOfWhatIsLeft) {
  const auto a = addAd("a");
  addAd("b");
  const auto c = addAd("c");

  EXPECT_THAT(networks({c->report(), a->report()}), ElementsAre("b"));
}

TEST_F(QueuedReportsTest, AReportThatWasListedIsLeftOutNext) {
  const auto a = addAd("a");
  addAd("b");
  list();

  EXPECT_THAT(networks({a->report()}), ElementsAre("b"));
}

TEST_F(QueuedReportsTest, AReportThatWasLeftOutIsListedAgainInItsPlace) {
  const auto a = addAd("a");
  addAd("b");
  list({a->report()});

  EXPECT_THAT(networks(), ElementsAre("a", "b"));
}

TEST_F(QueuedReportsTest, ASessionReportThatWasLeftOutIsListedAsItIsWhenItComesBack) {
  const auto session = ZLNSession::initWithStartTime(Date{1000});
  const auto report = ZLNReportSessionStop::reportWithSession(session);
  add(report);
  list();
  session->setDevice("while left");
  list({report});

  const std::vector<Dictionary> listed = list();

  ASSERT_EQ(1u, listed.size());
  EXPECT_EQ("while left", textOf(listed[0], "device"));
}

TEST_F(QueuedReportsTest, AReportThatHasNoDictionaryIsNotToldOfWhileItIsLeft) {
  const auto odd = std::make_shared<OddReport>(std::nullopt);
  add(odd);

  EXPECT_THAT(networks({odd}), IsEmpty());

  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(QueuedReportsTest, WhatIsLeftNeedNotBeInTheQueue) {
  addAd("a");

  EXPECT_THAT(networks({adReport("other")}), ElementsAre("a"));
}

// What cannot be listed.

TEST_F(QueuedReportsTest, AnOperationOfAnotherKindIsToldOfEachTimeAndSkipped) {
  addAd("a");
  queue.addOperation(std::make_shared<ForeignOperation>());
  addAd("b");

  EXPECT_THAT(networks(), ElementsAre("a", "b"));
  EXPECT_THAT(newLines(), ElementsAre(kUnexpected));
  EXPECT_THAT(networks(), ElementsAre("a", "b"));
  EXPECT_THAT(newLines(), ElementsAre(kUnexpected));
}

TEST_F(QueuedReportsTest, AnOperationOfAnotherKindIsNotToldOfOnceItHasLeft) {
  const auto operation = std::make_shared<ForeignOperation>();
  queue.addOperation(operation);
  list();
  newLines();

  operation->completeOperation();
  list();

  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(QueuedReportsTest, AnOperationWithoutAReportIsToldOfEachTimeAndSkipped) {
  addAd("a");
  add(nullptr);

  EXPECT_THAT(networks(), ElementsAre("a"));
  EXPECT_THAT(newLines(), ElementsAre(kNoReport));
  EXPECT_THAT(networks(), ElementsAre("a"));
  EXPECT_THAT(newLines(), ElementsAre(kNoReport));
}

TEST_F(QueuedReportsTest, AReportWithoutADictionaryIsToldOfEachTimeUntilItHasOne) {
  const auto odd = std::make_shared<OddReport>(std::nullopt);
  add(odd);
  list();
  newLines();

  list();

  EXPECT_THAT(newLines(),
              ElementsAre("ZLN Session: invalid super serialization (null) ((null))",
                          "ZLN Session: unable to serialize report <ZLNReportSessionStop: 0x*>"));

  odd->base = Dictionary{{"network", "sound"}};

  EXPECT_THAT(networks(), ElementsAre("sound"));
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(QueuedReportsTest, AReportThatLosesItsDictionaryIsListedNoLonger) {
  const auto odd = std::make_shared<OddReport>(Dictionary{{"network", "odd"}});
  add(odd);
  list();

  odd->base = std::nullopt;

  EXPECT_THAT(networks(), IsEmpty());
}

TEST_F(QueuedReportsTest, AReportThatTheFileCannotHoldIsListedSoThatTheListDoesNotFinish) {
  add(std::make_shared<OddReport>(Dictionary{{"odd", Null{}}}));

  image.begin();
  reports.follow(queue);
  reports.list({}, image);

  EXPECT_EQ(1u, image.count());
  EXPECT_FALSE(image.finish());
}

// Elements.

TEST_F(QueuedReportsTest, ASessionReportIsMadeAnewAfterItsSessionHasChanged) {
  const auto session = ZLNSession::initWithStartTime(Date{1000});
  session->setDevice("before");
  add(ZLNReportSessionStop::reportWithSession(session));
  EXPECT_EQ("before", textOf(list().at(0), "device"));

  session->setDevice("after");

  EXPECT_EQ("after", textOf(list().at(0), "device"));
}

TEST_F(QueuedReportsTest, ASessionReportIsMadeAnewAfterEachChange) {
  const auto session = ZLNSession::initWithStartTime(Date{1000});
  add(ZLNReportSessionStop::reportWithSession(session));
  list();

  session->setDevice("first");
  list();
  session->setDevice("second");

  EXPECT_EQ("second", textOf(list().at(0), "device"));
}

TEST_F(QueuedReportsTest, AReportOfTheBeginningIsTheSameElementWhatsoeverTheSessionBecomes) {
  const auto session = ZLNSession::initWithStartTime(Date{1000});
  const auto report = ZLNReportSessionStart::reportWithSession(session);
  const auto element = report->toElement();

  session->pause(Date{1010});
  session->stop(Date{1020});

  EXPECT_EQ(element, report->toElement());
}

TEST_F(QueuedReportsTest, ASessionReportIsTheSameElementUntilItsSessionChanges) {
  const auto session = ZLNSession::initWithStartTime(Date{1000});
  const auto report = ZLNReportSessionStop::reportWithSession(session);
  const auto element = report->toElement();

  EXPECT_EQ(element, report->toElement());

  session->setDevice("other");

  EXPECT_NE(element, report->toElement());
}

TEST_F(QueuedReportsTest, AnUnchangedSessionReportIsTakenOverFromTheLastList) {
  add(ZLNReportSessionStop::reportWithSession(ZLNSession::initWithStartTime(Date{1000})));
  list();

  EXPECT_EQ(allBytesOfElements(), unchangedBytes());
}

TEST_F(QueuedReportsTest, AChangedSessionReportIsNotTakenOverFromTheLastList) {
  const auto session = ZLNSession::initWithStartTime(Date{1000});
  add(ZLNReportSessionStop::reportWithSession(session));
  list();

  session->setDevice("other");

  EXPECT_EQ(property_list::kDocumentHead.size(), unchangedBytes());
}

TEST_F(QueuedReportsTest, ASessionReportWithoutASessionIsTheSameElementForEver) {
  const auto report = ZLNReportSessionStop::reportWithSession(nullptr);

  EXPECT_EQ(report->toElement(), report->toElement());
}

TEST_F(QueuedReportsTest, AnAdReportIsTheSameElementForEver) {
  const auto report = adReport("a");
  const auto element = report->toElement();
  report->setTemporaryFailureCount(3);
  add(report);
  list();
  list();

  EXPECT_EQ(element, report->toElement());
}

TEST_F(QueuedReportsTest, AdReportsAreTakenOverFromTheLastList) {
  addAd("a");
  addAd("b");
  list();

  EXPECT_EQ(allBytesOfElements(), unchangedBytes());
}

TEST_F(QueuedReportsTest, ReportsBehindOneThatHasLeftAreTheSameElements) {
  const auto a = addAd("a");
  const auto b = addAd("b");
  list();
  const auto element = b->report()->toElement();

  a->completeOperation();
  list();

  EXPECT_EQ(element, b->report()->toElement());
}

// Lines.

TEST_F(QueuedReportsTest, AtVerboseEachListedReportIsToldEachTime) {
  setLevel(4);
  const auto left = addAd("a");
  addAd("b");
  add(ZLNReportSessionStop::reportWithSession(ZLNSession::initWithStartTime(Date{1000})));
  const std::string ad =
      std::string("ZLN Session: saving report <ZLNReportAdAttempt: 0x*> to ") + kAdAttemptUrl;
  const std::string stop =
      std::string("ZLN Session: saving report <ZLNReportSessionStop: 0x*> to ") + kSessionStopUrl;
  newLines();

  list();

  EXPECT_THAT(newLines(), ElementsAre(ad, ad, stop));

  list({left->report()});

  EXPECT_THAT(newLines(), ElementsAre(ad, stop));
}

TEST_F(QueuedReportsTest, AtDebugListedReportsAreNotTold) {
  addAd("a");

  list();

  EXPECT_THAT(newLines(), IsEmpty());
}

}  // namespace
}  // namespace zln
