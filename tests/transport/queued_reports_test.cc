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

using testing::SizeIs;

using Reports = std::vector<std::shared_ptr<ZLNReportBase>>;

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
    EXPECT_TRUE(makeList(left));
    image.written();
    const std::optional<Value> root = property_list::read(image.text());
    std::vector<Dictionary> dictionaries;
    for (const Value& element : *root->array()) dictionaries.push_back(*element.dictionary());
    return dictionaries;
  }

  bool makeList(const Reports& left = {}) {
    image.begin();
    reports.follow(queue);
    reports.list(left, image);
    return image.finish();
  }

  void expectList(const std::vector<std::string>& networks, const Reports& left = {}) {
    std::vector<std::string> listed;
    for (const Dictionary& report : list(left)) listed.push_back(textOf(report, "network"));
    EXPECT_EQ(networks, listed);
  }

  // How much of the text the next list, which is the same, takes over from the last one.
  std::size_t unchangedBytes() {
    EXPECT_TRUE(makeList());
    return image.unchanged().head;
  }

  std::size_t allBytesOfElements() const {
    return image.text().size() - std::string("</array>\n").size() -
           property_list::kDocumentTail.size();
  }

  const std::shared_ptr<ZLNSession> session = ZLNSession::initWithStartTime(Date{1000});
  OperationQueue queue{env.dispatch};
  QueuedReports reports;
  ReportFileImage image;
};

TEST_F(QueuedReportsTest, AnEmptyQueueListsNothing) {
  expectList({});

  EXPECT_EQ(0u, image.count());
}

TEST_F(QueuedReportsTest, ListsTheReportsInTheOrderOfAddingEachTime) {
  addAd("a");
  addAd("b");

  expectList({"a", "b"});
  expectList({"a", "b"});

  addAd("c");
  addAd("d");

  expectList({"a", "b", "c", "d"});
}

TEST_F(QueuedReportsTest, ListsARunningReport) {
  queue.setSuspended(false);
  addAd("a");
  env.dispatch.runGlobal();

  expectList({"a"});
}

// Departures.

TEST_F(QueuedReportsTest, OneHasLeftFromAnywhere) {
  const auto a = addAd("a");
  const auto b = addAd("b");
  const auto c = addAd("c");
  const auto d = addAd("d");
  list();

  a->completeOperation();

  expectList({"b", "c", "d"});

  c->completeOperation();

  expectList({"b", "d"});

  d->completeOperation();

  expectList({"b"});

  b->completeOperation();

  expectList({});
}

TEST_F(QueuedReportsTest, AllHaveLeft) {
  const auto a = addAd("a");
  const auto b = addAd("b");
  list();

  b->completeOperation();
  a->completeOperation();

  expectList({});
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
  expectList({"staying"});
}

TEST_F(QueuedReportsTest, OneHasComeAndLeftBetweenTwoLists) {
  addAd("a");
  list();

  addAd("b")->completeOperation();

  expectList({"a"});
}

TEST_F(QueuedReportsTest, OthersComeWhenOneHasLeft) {
  addAd("a");
  const auto b = addAd("b");
  addAd("c");
  list();

  b->completeOperation();
  addAd("d");
  addAd("e");

  expectList({"a", "c", "d", "e"});
}

TEST_F(QueuedReportsTest, OthersComeAfterAListWithoutTheOneThatHasLeft) {
  const auto a = addAd("a");
  const auto b = addAd("b");
  list();
  a->completeOperation();
  list();

  addAd("c");

  expectList({"b", "c"});
}

TEST_F(QueuedReportsTest, OthersComeAfterAllHaveLeft) {
  addAd("a")->completeOperation();
  list();

  addAd("b");

  expectList({"b"});
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

  expectList({"b", "a"});
}

// Reports that are left out.

TEST_F(QueuedReportsTest, ListsNothingOfWhatIsLeftWhichNeedNotBeInTheQueue) {
  const auto a = addAd("a");
  addAd("b");
  const auto c = addAd("c");

  expectList({"b"}, {c->report(), a->report()});
  expectList({"a", "b", "c"}, {adReport("other")});
  expectList({"b", "c"}, {a->report()});
  expectList({"a", "b", "c"});
}

TEST_F(QueuedReportsTest, ASessionReportThatWasLeftOutIsListedAsItIsWhenItComesBack) {
  const auto report = ZLNReportSessionStop::reportWithSession(session);
  add(report);
  list();
  session->setDevice("while left");
  list({report});

  const std::vector<Dictionary> listed = list();

  ASSERT_THAT(listed, SizeIs(1));
  EXPECT_EQ("while left", textOf(listed[0], "device"));
}

TEST_F(QueuedReportsTest, AReportThatHasNoDictionaryIsNotToldOfWhileItIsLeft) {
  const auto odd = std::make_shared<OddReport>(std::nullopt);
  add(odd);

  expectList({}, {odd});

  expectLines({});
}

// What cannot be listed.

TEST_F(QueuedReportsTest, AnOperationWithoutAReportIsToldOfEachTimeAndSkipped) {
  addAd("a");
  queue.addOperation(std::make_shared<ForeignOperation>());
  add(nullptr);
  addAd("b");

  for (int times = 0; times < 2; ++times) {
    expectList({"a", "b"});
    expectLines(
        {"unexpected report in op queue: foreign operation", "unable to serialize report (null)"});
  }
}

TEST_F(QueuedReportsTest, AnOperationOfAnotherKindIsNotToldOfOnceItHasLeft) {
  const auto operation = std::make_shared<ForeignOperation>();
  queue.addOperation(operation);
  list();
  newLines();

  operation->completeOperation();
  list();

  expectLines({});
}

TEST_F(QueuedReportsTest, AReportIsToldOfEachTimeWhileItHasNoDictionary) {
  const auto odd = std::make_shared<OddReport>(std::nullopt);
  add(odd);

  for (int times = 0; times < 2; ++times) {
    expectList({});
    expectLines({"invalid super serialization (null) ((null))",
                 "unable to serialize report <ZLNReportSessionStop: 0x*>"});
  }

  odd->base = Dictionary{{"network", "sound"}};

  expectList({"sound"});
  expectLines({});

  odd->base = std::nullopt;

  expectList({});
}

TEST_F(QueuedReportsTest, AReportThatTheFileCannotHoldIsListedSoThatTheListDoesNotFinish) {
  add(std::make_shared<OddReport>(Dictionary{{"odd", Null{}}}));

  EXPECT_FALSE(makeList());
  EXPECT_EQ(1u, image.count());
}

// Elements.

TEST_F(QueuedReportsTest, ASessionReportIsMadeAnewAfterEachChangeOfItsSession) {
  add(ZLNReportSessionStop::reportWithSession(session));
  for (const char* device : {"before", "first", "second"}) {
    session->setDevice(device);

    EXPECT_EQ(device, textOf(list().at(0), "device"));
  }
}

TEST_F(QueuedReportsTest, AReportOfTheBeginningIsTheSameElementWhatsoeverTheSessionBecomes) {
  const auto report = ZLNReportSessionStart::reportWithSession(session);
  const auto element = report->toElement();

  session->pause(Date{1010});
  session->stop(Date{1020});

  EXPECT_EQ(element, report->toElement());
}

TEST_F(QueuedReportsTest, ASessionReportIsTheSameElementUntilItsSessionChanges) {
  const auto report = ZLNReportSessionStop::reportWithSession(session);
  const auto element = report->toElement();

  EXPECT_EQ(element, report->toElement());

  session->setDevice("other");

  EXPECT_NE(element, report->toElement());
}

TEST_F(QueuedReportsTest, ASessionReportIsTakenOverFromTheLastListUntilItsSessionChanges) {
  add(ZLNReportSessionStop::reportWithSession(session));
  list();

  EXPECT_EQ(allBytesOfElements(), unchangedBytes());

  session->setDevice("other");

  EXPECT_EQ(property_list::kDocumentHead.size(), unchangedBytes());
}

TEST_F(QueuedReportsTest, ASessionReportWithoutASessionIsTheSameElementForEver) {
  const auto report = ZLNReportSessionStop::reportWithSession(nullptr);

  EXPECT_EQ(report->toElement(), report->toElement());
}

TEST_F(QueuedReportsTest, AnAdReportIsTheSameElementForEver) {
  const auto before = addAd("before");
  const auto report = adReport("a");
  const auto element = report->toElement();
  report->setTemporaryFailureCount(3);
  add(report);
  list();

  EXPECT_EQ(allBytesOfElements(), unchangedBytes());
  EXPECT_EQ(element, report->toElement());

  before->completeOperation();
  list();

  EXPECT_EQ(element, report->toElement());
}

// Lines.

TEST_F(QueuedReportsTest, EachListedReportIsToldEachTime) {
  const auto left = addAd("a");
  addAd("b");
  add(ZLNReportSessionStop::reportWithSession(session));
  const std::string ad = std::string("saving report <ZLNReportAdAttempt: 0x*> to ") + kAdAttemptUrl;
  const std::string stop =
      std::string("saving report <ZLNReportSessionStop: 0x*> to ") + kSessionStopUrl;

  setLevel(4);

  list();

  expectLines({ad, ad, stop});

  list({left->report()});

  expectLines({ad, stop});
}

}  // namespace
}  // namespace zln
