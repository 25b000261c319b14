#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/property_list.h"
#include "reports/ZLNReportSessionStart.h"
#include "reports/ZLNReportSessionStop.h"
#include "tests/transport/manager_fixture.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAreArray;

constexpr char kEmptyFile[] =
    R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<array/>
</plist>
)";

// What a session-start report and a number looked like when another tool turned the file into its
// binary form: an array of the report and 3.
constexpr unsigned char kBinaryFile[] = {
    0x62, 0x70, 0x6c, 0x69, 0x73, 0x74, 0x30, 0x30, 0xa2, 0x01, 0x0c, 0xd5, 0x02, 0x03, 0x04, 0x05,
    0x06, 0x07, 0x08, 0x09, 0x0a, 0x0b, 0x57, 0x63, 0x6f, 0x75, 0x6e, 0x74, 0x72, 0x79, 0x59, 0x73,
    0x65, 0x73, 0x73, 0x69, 0x6f, 0x6e, 0x49, 0x64, 0x59, 0x73, 0x74, 0x61, 0x72, 0x74, 0x54, 0x69,
    0x6d, 0x65, 0x54, 0x74, 0x79, 0x70, 0x65, 0x56, 0x75, 0x73, 0x65, 0x72, 0x49, 0x64, 0x52, 0x46,
    0x52, 0x6a, 0x00, 0x53, 0x00, 0x45, 0x00, 0x53, 0x00, 0x53, 0x00, 0x49, 0x00, 0x4f, 0x00, 0x4e,
    0x00, 0x20, 0xd8, 0x3c, 0xdf, 0xae, 0x12, 0x65, 0x53, 0xf1, 0x00, 0x5f, 0x10, 0x16, 0x52, 0x65,
    0x70, 0x6f, 0x72, 0x74, 0x54, 0x79, 0x70, 0x65, 0x53, 0x65, 0x73, 0x73, 0x69, 0x6f, 0x6e, 0x53,
    0x74, 0x61, 0x72, 0x74, 0x57, 0x45, 0x41, 0x52, 0x4c, 0x49, 0x45, 0x52, 0x10, 0x03, 0x08, 0x0b,
    0x16, 0x1e, 0x28, 0x32, 0x37, 0x3e, 0x41, 0x56, 0x5b, 0x74, 0x7c, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x01, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x0d, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x7e};

constexpr char kNoSuper[] = "invalid super serialization (null) ((null))";
constexpr char kNoStop[] = "unable to serialize report <ZLNReportSessionStop: 0x*>";
const Dictionary kHolding{{kFailureLimit, Number::int32(1)}};

class ZLNReportingManagerFileTest : public ManagerTest {
 protected:
  // Begins with what an earlier process left behind.
  void beginWith(Array reports, const Dictionary& settings = {}) {
    env.files.put(kReportsFile, *property_list::write(std::move(reports)));
    putSettings(settings);
    manager();
    env.dispatch.runGlobal();
  }

  // Has a report sent and, under these settings, held.
  void hold(const std::shared_ptr<ZLNReportBase>& report) {
    manager().queueReportForTransmission(report);
    env.dispatch.runGlobal();
    timeOut();
  }

  static Dictionary storedAd(const std::string& network) {
    return Dictionary{{"type", "ReportTypeAdAttempt"}, {"network", network}};
  }

  static std::vector<std::string> queuedNetworks() {
    std::vector<std::string> networks;
    for (const auto& operation : manager().reportQueue().operations()) {
      const auto report = std::dynamic_pointer_cast<ZLNReportOperationBase>(operation)->report();
      networks.push_back(textOf(*report->toDictionary(), "network"));
    }
    return networks;
  }

  void expectQueuedAndStored(const std::vector<std::string>& networks) const {
    EXPECT_EQ(networks, queuedNetworks());
    EXPECT_EQ(networks, storedNetworks());
  }
};

// Saving.

TEST_F(ZLNReportingManagerFileTest, NothingOwedIsAnEmptyArrayWhateverTheFileHeld) {
  beginSuspended();
  env.files.put(kReportsFile, "something else");

  manager().saveReports();

  EXPECT_EQ(kEmptyFile, env.files.contents(kReportsFile));
  expectLines({"saved 0 reports"});
}

TEST_F(ZLNReportingManagerFileTest, IsAPropertyListOfTheDictionariesWithoutTheFailureCount) {
  beginSuspended();
  const auto report = adReport();
  report->setTemporaryFailureCount(2);

  manager().queueReportForTransmission(report);

  EXPECT_EQ(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<array>
	<dict>
		<key>adEventId</key>
		<string>00000000-0000-4000-8000-000000000001</string>
		<key>adType</key>
		<string>banner</string>
		<key>bundleId</key>
		<string>com.example.game</string>
		<key>country</key>
		<string>DE</string>
		<key>device</key>
		<string>iPhone14,5</string>
		<key>fill</key>
		<false/>
		<key>network</key>
		<string>net</string>
		<key>platform</key>
		<string>iOS</string>
		<key>type</key>
		<string>ReportTypeAdAttempt</string>
		<key>userId</key>
		<string>USER</string>
	</dict>
</array>
</plist>
)",
            env.files.contents(kReportsFile));
}

TEST_F(ZLNReportingManagerFileTest, ListsHeldReportsBeforeQueuedOnesEachInTheirOrder) {
  begin(kHolding);
  hold(adReport("held first"));
  hold(adReport("held second"));

  queue("queued first");
  queue("queued second");

  EXPECT_THAT(storedNetworks(),
              ElementsAre("held first", "held second", "queued first", "queued second"));
}

TEST_F(ZLNReportingManagerFileTest, ListsARunningReport) {
  begin();
  send();

  manager().saveReports();

  EXPECT_EQ(1u, env.http.outstanding());
  EXPECT_THAT(storedNetworks(), ElementsAre("net"));
}

TEST_F(ZLNReportingManagerFileTest, LeavesADeliveredReportOutWhoseOperationIsStillInTheQueue) {
  begin();
  send("delivered");
  send("other");

  env.http.reply(0, kAccepted);

  // The only write since: it was made before the operation left the queue.
  EXPECT_EQ(3u, env.files.writeCount(kReportsFile));
  EXPECT_THAT(storedNetworks(), ElementsAre("other"));

  env.http.reply(1, kAccepted);

  EXPECT_EQ(kEmptyFile, env.files.contents(kReportsFile));
  EXPECT_THAT(env.files.removed(), IsEmpty());
}

TEST_F(ZLNReportingManagerFileTest, LeavesOutOnlyTheSameObjectsAndSaysNothingOfThem) {
  beginSuspended();
  const auto report = ZLNReportAdAttempt::initWithDictionary(storedAd("same"));
  const auto twin = ZLNReportAdAttempt::initWithDictionary(storedAd("same"));
  manager().queueReportForTransmission(report);
  manager().queueReportForTransmission(twin);
  const auto last = queue("last");
  newLines();

  manager().saveReportsExcept({report, last});

  EXPECT_THAT(storedNetworks(), ElementsAre("same"));
  expectLines({kSaving, "saved 1 reports"});
}

TEST_F(ZLNReportingManagerFileTest, AHeldReportIsWrittenAlsoWhenItIsToBeLeftOut) {
  begin(kHolding);
  const auto report = adReport("held");
  hold(report);
  newLines();

  manager().saveReportsExcept({report});

  EXPECT_THAT(storedNetworks(), ElementsAre("held"));
  expectLines({"saved 1 reports"});
}

TEST_F(ZLNReportingManagerFileTest, TheQueueIsReadBeforeTheHolding) {
  begin(kHolding);
  const auto held = std::make_shared<OddReport>(Dictionary{{"network", "held"}});
  hold(held);
  // Queued while the holding is read.
  held->whenSerialized = [] {
    manager().reportQueue().addOperation(manager().getReportingOperationForReport(adReport("new")));
  };

  manager().saveReports();

  EXPECT_THAT(storedNetworks(), ElementsAre("held"));

  manager().saveReports();

  EXPECT_THAT(storedNetworks(), ElementsAre("held", "new"));
}

TEST_F(ZLNReportingManagerFileTest, AQueuedReportWithoutADictionaryIsLeftOutAndStaysQueued) {
  beginSuspended();
  manager().queueReportForTransmission(std::make_shared<OddReport>(std::nullopt));
  newLines();

  queue("sound");

  expectLines({kQueued, kNoSuper, kNoStop, kSaving, "saved 1 reports"});
  EXPECT_THAT(storedNetworks(), ElementsAre("sound"));
  EXPECT_EQ(2u, manager().reportQueue().operationCount());
}

TEST_F(ZLNReportingManagerFileTest, AHeldReportWithoutADictionaryIsLeftOutAndStaysHeld) {
  begin(kHolding);
  const auto report = std::make_shared<OddReport>(Dictionary{{"odd", "entry"}});
  hold(report);
  hold(adReport("sound"));
  newLines();

  report->base = std::nullopt;
  manager().saveReports();

  expectLines({kNoSuper, kNoStop, "saved 1 reports"});
  EXPECT_THAT(storedNetworks(), ElementsAre("sound"));
  EXPECT_THAT(manager().temporaryErrorReports(), SizeIs(2));
}

TEST_F(ZLNReportingManagerFileTest, AnOperationThatLostItsReportIsLeftOut) {
  beginSuspended();
  queue();
  firstOperation()->setReport(nullptr);
  newLines();

  manager().saveReports();

  expectLines({"unable to serialize report (null)", "saved 0 reports"});
}

TEST_F(ZLNReportingManagerFileTest, AnOperationOfAnotherKindIsSkipped) {
  beginSuspended();
  manager().reportQueue().addOperation(std::make_shared<ForeignOperation>());

  queue();

  expectLines(
      {kQueued, "unexpected report in op queue: foreign operation", kSaving, "saved 1 reports"});
  EXPECT_THAT(storedNetworks(), ElementsAre("net"));
}

TEST_F(ZLNReportingManagerFileTest, AFailedWriteIsToldWithTheNumberAndLosesNothing) {
  beginSuspended();
  queue("first");
  env.files.failWrites();
  newLines();

  EXPECT_TRUE(manager().queueReportForTransmission(adReport("second")));

  expectLines({kQueued, kSaving, kSaving, "failed to save 2 pending reports!"});
  EXPECT_THAT(storedNetworks(), ElementsAre("first"));
  EXPECT_EQ(2u, manager().reportQueue().operationCount());
}

TEST_F(ZLNReportingManagerFileTest, AValueThatAPropertyListCannotHoldFailsTheWrite) {
  beginSuspended();
  queue("first");

  manager().queueReportForTransmission(std::make_shared<OddReport>(Dictionary{{"odd", Null{}}}));

  EXPECT_TRUE(log().contains("ZLN Session: failed to save 2 pending reports!"));
  EXPECT_THAT(storedNetworks(), ElementsAre("first"));
  EXPECT_EQ(2u, manager().reportQueue().operationCount());
}

TEST_F(ZLNReportingManagerFileTest, ASaveThatIsOvertakenLosesNothingOfTheLaterOne) {
  setLevel(4);
  queue("early");
  // While the next save writes its snapshot down, another report is queued and saved.
  whenLogged("saving report", [&] { queue("late"); });

  manager().saveReports();

  EXPECT_THAT(storedNetworks(), ElementsAre("early", "late"));
}

TEST_F(ZLNReportingManagerFileTest, WhatXmlCannotHoldIsStoredAsTheReplacementCharacter) {
  const std::string longText(65536, 'x');
  beginSuspended();

  queue(std::string("\0\x01\x1f\t\n\"'<&>", 10) + "\u00e9\U0001F3AE\uFFFF" + longText);

  EXPECT_THAT(storedNetworks(),
              ElementsAre("\uFFFD\uFFFD\uFFFD\t\n\"'<&>\u00e9\U0001F3AE\uFFFD" + longText));
}

// Loading.

TEST_F(ZLNReportingManagerFileTest, WithoutAFileNothingIsLoadedAndNothingSaid) {
  setLevel(4);

  manager();
  newLines();
  env.dispatch.runGlobal();

  expectLines({"transmit reports"});
  EXPECT_EQ(std::nullopt, env.files.contents(kReportsFile));
}

TEST_F(ZLNReportingManagerFileTest, IsLoadedByTheStartUpTaskAndSentAtOnce) {
  env.files.put(kReportsFile, *property_list::write(Array{storedAd("stored")}));
  setLevel(4);

  EXPECT_EQ(0u, manager().reportQueue().operationCount());

  newLines();
  env.dispatch.runGlobal();

  expectLines({std::string("recovered report <ZLNReportAdAttempt: 0x*> to ") + kAdAttemptUrl,
               kQueued, "transmit reports", "manager background task started 1", kSaving,
               "saved 1 reports", "transmit reports",
               std::string("posting report <ZLNReportAdAttempt: 0x*> to ") + kAdAttemptUrl,
               R"(sending report: {"userId":"USER","country":"DE","type":"ReportTypeAdAttempt",)"
               R"("device":"iPhone14,5","platform":"iOS","bundleId":"com.example.game",)"
               R"("network":"stored","adType":"unknown","fill":false})"});
  EXPECT_THAT(env.http.requests(), SizeIs(1));
}

TEST_F(ZLNReportingManagerFileTest, WhetherToSendAtOnceIsAskedAfterLoading) {
  setLevel(3);
  whenLogged("saved 1 reports", [] { settings().setTransmitReportsImmediately(true); });

  beginWith({storedAd("stored")}, {{kTransmitImmediately, Number::boolean(false)}});

  EXPECT_THAT(env.http.requests(), SizeIs(1));
}

TEST_F(ZLNReportingManagerFileTest, AnElementThatIsNoReportIsToldAndDropped) {
  beginWith({storedAd("a"), Dictionary{{"type", "ReportTypeOther"}}, "text", Number::int64(3),
             Array{}, storedAd("b"), storedAd("c"), storedAd("d")},
            {{kTransmitImmediately, Number::boolean(false)}});

  expectLines({"unknown report type ReportTypeOther",
               "unable to recover report from {\n    type = ReportTypeOther;\n}",
               "unable to recover report from text", "unable to recover report from 3",
               "unable to recover report from (\n)"});
  expectQueuedAndStored({"a", "b", "c", "d"});
  EXPECT_EQ(1u, env.files.writeCount(kReportsFile));
}

TEST_F(ZLNReportingManagerFileTest, AReportThatComesBeforeTheFileIsLoadedLeavesItsReportsInIt) {
  const std::string binary(std::begin(kBinaryFile), std::end(kBinaryFile));
  const std::string blanks =
      "<plist version=\"1.0\"> <array> <dict> <key>type</key> "
      "<string>ReportTypeSessionStart</string> </dict> </array> </plist>";
  for (const std::string& left :
       {*property_list::write(Array{Dictionary{{"type", "ReportTypeSessionStart"}}}), binary,
        blanks}) {
    restart();
    env.files.put(kReportsFile, left);

    queue("early");

    const auto root = property_list::read(env.files.contents(kReportsFile).value());
    ASSERT_TRUE(root && root->array() != nullptr && root->array()->size() >= 2) << left;
    EXPECT_EQ("early", textOf(*root->array()->at(0).dictionary(), "network"));
    EXPECT_EQ("ReportTypeSessionStart", textOf(*root->array()->at(1).dictionary(), "type"));
  }
}

TEST_F(ZLNReportingManagerFileTest, WhatIsNoReportIsGoneAfterLoadingAlsoWhenASaveCameBefore) {
  env.files.put(kReportsFile, *property_list::write(Array{"text"}));
  queue("early");

  env.dispatch.runGlobal();

  const auto root = property_list::read(env.files.contents(kReportsFile).value());
  EXPECT_EQ(1u, root->array()->size());
}

TEST_F(ZLNReportingManagerFileTest, AFileThatIsNoListIsReplacedByTheFirstSave) {
  std::string cut = *property_list::write(Array{storedAd("cut")});
  cut[cut.size() / 2] = '\0';
  for (const std::string& content : {std::string("no list"), cut}) {
    restart();
    env.files.put(kReportsFile, content);

    queue("early");

    EXPECT_THAT(storedNetworks(), ElementsAre("early"));
  }
}

TEST_F(ZLNReportingManagerFileTest, AFileThatCannotBeReadIsNotReplacedAndIsLoadedByTheNextProcess) {
  env.files.put(kReportsFile, *property_list::write(Array{storedAd("stored")}));
  env.files.failRead(kReportsFile);
  manager();
  env.dispatch.runGlobal();
  setLevel(1);

  queue("early");
  expectLines({"failed to save 1 pending reports!"});
  EXPECT_THAT(storedNetworks(), ElementsAre("stored"));
  env.files.failRead(kReportsFile, false);
  queue("late");

  expectLines({});
  EXPECT_THAT(storedNetworks(), ElementsAre("early", "late", "stored"));
  restart();
  manager();
  env.dispatch.runGlobal();
  expectQueuedAndStored({"early", "late", "stored"});
}

TEST_F(ZLNReportingManagerFileTest, TheListBeforeIsLoadedOnlyWhereTheFileIsNoList) {
  const std::string before = *property_list::write(Array{storedAd("before")});
  struct Row {
    std::optional<std::string> content;
    std::vector<std::string> loaded;
  };
  // In the last one a power cut has taken some bytes of what the file had.
  std::string cut = *property_list::write(Array{storedAd("cut")});
  cut[cut.size() / 2] = '\0';
  for (const auto& [content, loaded] :
       std::vector<Row>{{std::nullopt, {}},
                        {*property_list::write(Array{}), {}},
                        {*property_list::write(Array{storedAd("now")}), {"now"}},
                        {"junk", {"before"}},
                        {cut, {"before"}}}) {
    restart();
    env.files.remove(kReportsFile, nullptr);
    if (content) env.files.put(kReportsFile, *content);
    env.files.put("/support/com.zelnor.sdk/.reports.json.spare", before);
    manager();

    env.dispatch.runGlobal();

    EXPECT_EQ(loaded, queuedNetworks());
  }
}

TEST_F(ZLNReportingManagerFileTest, AFileOfInvalidElementsAloneStaysUntilTheNextSave) {
  beginWith({"text"}, {{kTransmitImmediately, Number::boolean(false)}});

  EXPECT_EQ(0u, env.files.writeCount(kReportsFile));

  manager().saveReports();

  EXPECT_EQ(kEmptyFile, env.files.contents(kReportsFile));
}

TEST_F(ZLNReportingManagerFileTest, AnUnreadableFileIsIgnoredWithoutAWordAndStays) {
  std::string deeplyNested = "<plist version=\"1.0\">";
  for (const char* tag : {"<array>", "</array>"}) {
    for (int level = 0; level < 100000; ++level) deeplyNested += tag;
  }
  for (const std::string& bytes :
       {std::string(), std::string("no property list"),
        std::string(R"([{"type":"ReportTypeAdAttempt"}])"),
        std::string(R"(<plist version="1.0"><dict/></plist>)"),
        std::string(kEmptyFile).substr(0, 180), std::string("bplist00\xFF\xFF\xFF", 11),
        deeplyNested + "</plist>"}) {
    SCOPED_TRACE(bytes.substr(0, 50));
    restart();
    env.files.put(kReportsFile, bytes);
    setLevel(4);
    manager();
    newLines();

    env.dispatch.runGlobal();

    expectLines({"transmit reports"});
    EXPECT_EQ(0u, manager().reportQueue().operationCount());
    EXPECT_EQ(bytes, env.files.contents(kReportsFile));
  }
}

TEST_F(ZLNReportingManagerFileTest, TheBinaryFormIsReadToo) {
  env.files.put(kReportsFile, std::string(std::begin(kBinaryFile), std::end(kBinaryFile)));

  manager();
  env.dispatch.runGlobal();

  expectLines({"unable to recover report from 3"});
  ASSERT_THAT(env.http.requests(), SizeIs(1));
  EXPECT_EQ((Dictionary{{"type", "ReportTypeSessionStart"},
                        {"userId", "EARLIER"},
                        {"country", "FR"},
                        {"sessionId", "SESSION \U0001F3AE"},
                        {"startTime", Number::int64(1700000000)}}),
            sentReports(env.http)[0].body);
}

TEST_F(ZLNReportingManagerFileTest, AKindSwitchedOffMeanwhileIsNotTakenUp) {
  beginWith(
      {Dictionary{{"type", "ReportTypeSessionStop"}, {"network", "dropped"}}, storedAd("kept")},
      {{"ConfigSerializationKeySendStopSessionReports", Number::boolean(false)}});

  expectQueuedAndStored({"kept"});
}

TEST_F(ZLNReportingManagerFileTest, IsReadOnceInAProcess) {
  beginSuspended();
  env.files.put(kReportsFile, *property_list::write(Array{storedAd("late")}));

  env.app.enterForeground();
  env.dispatch.runGlobal();

  EXPECT_EQ(0u, manager().reportQueue().operationCount());
}

TEST_F(ZLNReportingManagerFileTest, AReportQueuedBeforeTheStoredOnesAreLoadedLosesNone) {
  env.files.put(kReportsFile, *property_list::write(Array{storedAd("stored")}));
  putSettings({{kTransmitImmediately, Number::boolean(false)}});

  queue("new");
  env.dispatch.runGlobal();

  expectQueuedAndStored({"new", "stored"});
}

TEST_F(ZLNReportingManagerFileTest, StoredValuesOfAnyKindAreStoredAgainAsTheyAre) {
  const Array kinds = {Number::int64(-7),     Number::float64(0.25), Number::boolean(true),
                       Date{1700000000},      Data{"\x01\x02"},      Array{"a", Number::int64(1)},
                       Dictionary{{"b", "c"}}};
  Array reports;
  for (const Value& kind : kinds) {
    reports.push_back(Dictionary{
        {"type", "ReportTypeAdAttempt"}, {"network", kind}, {"adType", kind}, {"adEventId", kind}});
  }

  beginWith(reports, {{kTransmitImmediately, Number::boolean(false)}});

  const std::vector<Dictionary> stored = storedReports(env.files);
  ASSERT_THAT(stored, SizeIs(7));
  for (std::size_t index = 0; index < 7; ++index) {
    for (const char* key : {"network", "adType", "adEventId"}) {
      EXPECT_EQ(kinds[index], *stored[index].find(key)) << key;
    }
  }
}

TEST_F(ZLNReportingManagerFileTest, AStoredDateCannotBeSentAndIsDropped) {
  beginWith({Dictionary{{"type", "ReportTypeAdAttempt"}, {"network", Date{1700000000}}}});

  EXPECT_EQ(0u, manager().reportQueue().operationCount());
  EXPECT_THAT(env.http.requests(), IsEmpty());
  EXPECT_THAT(storedReports(env.files), IsEmpty());
}

TEST_F(ZLNReportingManagerFileTest, AUserIdentifierThatIsANumberIsStoredAndSent) {
  env.defaults.set("com.zelnor.sessionUserId", Number::int64(7));
  begin();

  send();

  EXPECT_EQ(7, numberOf(storedReports(env.files).at(0), "userId"));
  EXPECT_EQ(7, numberOf(sentReports(env.http).at(0).body, "userId"));
}

TEST_F(ZLNReportingManagerFileTest, AUserIdentifierThatIsADateIsStoredButCannotBeSent) {
  env.defaults.set("com.zelnor.sessionUserId", Date{1700000000});
  begin();

  queue();

  EXPECT_EQ(Value(Date{1700000000}), *storedReports(env.files).at(0).find("userId"));

  env.dispatch.runGlobal();

  EXPECT_EQ(0u, manager().reportQueue().operationCount());
  EXPECT_THAT(env.http.requests(), IsEmpty());
}

// From one process to the next.

TEST_F(ZLNReportingManagerFileTest, AReportComesBackUntilItIsDeliveredAndTwiceWhenListedTwice) {
  begin();
  queue("pending");

  restart();
  begin();

  expectQueuedAndStored({"pending"});

  timeOut();
  restart();
  begin();

  expectQueuedAndStored({"pending", "pending"});

  env.http.reply(1, kAccepted);
  env.http.reply(2, kAccepted);
  restart();
  begin();

  EXPECT_EQ(0u, manager().reportQueue().operationCount());
}

TEST_F(ZLNReportingManagerFileTest, AHeldReportComesBackAsAPendingOneWithoutFailures) {
  begin();
  queue("held");
  for (int attempt = 0; attempt < 3; ++attempt) {
    env.dispatch.runGlobal();
    timeOut();
  }
  ASSERT_THAT(manager().temporaryErrorReports(), SizeIs(1));

  restart();
  begin();

  EXPECT_THAT(manager().temporaryErrorReports(), IsEmpty());
  expectQueuedAndStored({"held"});
  EXPECT_EQ(0, firstOperation()->report()->temporaryFailureCount());
}

TEST_F(ZLNReportingManagerFileTest, ASessionComesBackWithTimesOf128Seconds) {
  const auto session = ZLNSession::initWithStartTime(Date{1700000050});
  session->pause(Date{1700000100});
  session->stop(Date{1700000100});
  begin();
  manager().queueReportForTransmission(ZLNReportSessionStop::reportWithSession(session));

  restart();
  begin();

  const Dictionary sent = sentReports(env.http).at(0).body;
  EXPECT_EQ(1700000000, numberOf(sent, "startTime"));
  EXPECT_EQ(1700000128, numberOf(sent, "stopTime"));
  EXPECT_EQ(50, numberOf(sent, "totalDuration"));
}

// Restoring what is held.

TEST_F(ZLNReportingManagerFileTest, RestoringNothingSaysSoAndQueuesNothing) {
  beginSuspended();

  manager().restoreTemporaryErrorReports();

  expectLines({"temporary error\"d reports restoring"});
  EXPECT_EQ(0u, manager().reportQueue().operationCount());
  EXPECT_EQ(std::nullopt, env.files.contents(kReportsFile));
}

TEST_F(ZLNReportingManagerFileTest, RestoringQueuesTheHeldReportsInTheirOrderWithoutFailures) {
  begin(kHolding);
  const auto first = adReport("first");
  const auto second = adReport("second");
  hold(first);
  hold(second);
  newLines();
  whenLogged("temporary error", [&] { EXPECT_EQ(1, second->temporaryFailureCount()); });

  manager().restoreTemporaryErrorReports();

  expectLines({"temporary error\"d reports restoring", kQueued, "transmit reports",
               "manager background task started 3", kSaving, "saved 1 reports", kQueued,
               "transmit reports", kSaving, kSaving, "saved 2 reports"});
  EXPECT_EQ(0, first->temporaryFailureCount());
  EXPECT_EQ(0, second->temporaryFailureCount());
  EXPECT_THAT(manager().temporaryErrorReports(), IsEmpty());
  expectQueuedAndStored({"first", "second"});
}

TEST_F(ZLNReportingManagerFileTest, AReportThatAFullQueueRefusesLeavesTheFile) {
  begin(kHolding);
  for (const char* network : {"first", "second"}) hold(adReport(network));
  env.http.always(nullptr);
  for (int count = 0; count < 1000; ++count) queue("filler");

  manager().restoreTemporaryErrorReports();

  const std::vector<std::string> stored = storedNetworks();
  EXPECT_THAT(stored, SizeIs(1001));
  EXPECT_EQ("first", stored.back());
}

TEST_F(ZLNReportingManagerFileTest, AChangeOfAQueuedReportIsSaved) {
  beginSuspended();
  const auto report = queue();
  queue();

  report->setCountry("AT");
  report->setUserId("other");
  manager().saveReports();

  EXPECT_EQ("AT", textOf(storedReports(env.files)[0], "country"));
  EXPECT_EQ("other", textOf(storedReports(env.files)[0], "userId"));
  EXPECT_EQ("DE", textOf(storedReports(env.files)[1], "country"));
}

// What the file has at a moment is what a kill at that moment leaves.
class ZLNReportingManagerKillTest : public ZLNReportingManagerFileTest {
 protected:
  // At each of the next three reports to be queued the file has these, and again after a save.
  void expectAtQueueing(const std::vector<std::string>& networks) {
    for (int step = 0; step < 3; ++step) {
      whenLogged("queue report", [=, this] {
        EXPECT_THAT(storedNetworks(), UnorderedElementsAreArray(networks));
        manager().saveReports();
        EXPECT_THAT(storedNetworks(), UnorderedElementsAreArray(networks));
      });
    }
  }
};

TEST_F(ZLNReportingManagerKillTest, WhileReportsAreLoadedTheFileHasAllOfThem) {
  env.files.put(kReportsFile,
                *property_list::write(Array{storedAd("a"), storedAd("b"), storedAd("c")}));
  setLevel(3);
  queue("early");
  expectAtQueueing({"early", "a", "b", "c"});

  env.dispatch.runGlobal();

  expectQueuedAndStored({"early", "a", "b", "c"});
}

TEST_F(ZLNReportingManagerKillTest, WhileReportsAreRestoredTheFileHasAllOfThem) {
  begin(kHolding);
  for (const char* network : {"a", "b", "c"}) hold(adReport(network));
  queue("queued");
  expectAtQueueing({"queued", "a", "b", "c"});

  manager().restoreTemporaryErrorReports();

  expectQueuedAndStored({"queued", "a", "b", "c"});
}

TEST_F(ZLNReportingManagerFileTest, AnOperationThatLeavesWhileReportsAreRestoredLeavesTheFile) {
  begin(kHolding);
  for (const char* network : {"first", "second", "third"}) hold(adReport(network));
  queue("leaving");
  setLevel(3);
  whenLogged("queue report", [] {});
  // As many operations come as go.
  whenLogged("queue report", [] {
    firstOperation()->completeOperation();
    manager().reportQueue().addOperation(manager().getReportingOperationForReport(adReport("new")));
  });

  manager().restoreTemporaryErrorReports();

  EXPECT_THAT(storedNetworks(), ElementsAre("first", "new", "second", "third"));
}

TEST_F(ZLNReportingManagerFileTest, ARestoredReportOfAKindSwitchedOffIsDropped) {
  begin(kHolding);
  hold(ZLNReportSessionStart::reportWithSession(ZLNSession::initWithStartTime(Date{1700000000})));
  settings().setSendStartSessionReports(false);

  manager().restoreTemporaryErrorReports();

  EXPECT_EQ(0u, manager().reportQueue().operationCount());
  EXPECT_THAT(manager().temporaryErrorReports(), IsEmpty());
}

}  // namespace
}  // namespace zln
