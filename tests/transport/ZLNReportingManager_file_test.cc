#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "config/ZLNReportingConfig.h"
#include "platform/property_list.h"
#include "reports/ZLNReportSessionStart.h"
#include "reports/ZLNReportSessionStop.h"
#include "support/endpoints.h"
#include "tests/support/hooked_process.h"
#include "tests/support/sent_reports.h"
#include "tests/transport/reporting_test.h"
#include "transport/ZLNReportingManager.h"

namespace zln {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr char kAccepted[] = R"({"success":true})";

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

const std::string kSaving =
    std::string("ZLN Session: saving report <ZLNReportAdAttempt: 0x*> to ") + kAdAttemptUrl;

// A place in the queue that is no report's.
class ForeignOperation : public ZLNAsynchronousOperation {
 public:
  std::string description() const override { return "foreign operation"; }
};

class ZLNReportingManagerFileTest : public ReportingTest {
 protected:
  // The manager after its start-up task, its queue suspended, with the log empty and at verbose.
  ZLNReportingManager& beginSuspended() {
    putSettings({{"ConfigSerializationKeyTransmitReportsImmediately", Number::boolean(false)}});
    return begin();
  }

  // Sends at once and holds a report after its first failure.
  ZLNReportingManager& beginHolding() {
    putSettings({{"ConfigSerializationKeyReportTemporaryFailureLimit", Number::int32(1)}});
    return begin();
  }

  ZLNReportingManager& begin() {
    ZLNReportingManager& begun = *ZLNReportingManager::sharedManager();
    env.dispatch.runGlobal();
    setLevel(4);
    log().clear();
    return begun;
  }

  // Has a report sent and held.
  void hold(ZLNReportingManager& manager, const std::shared_ptr<ZLNReportBase>& report) {
    manager.queueReportForTransmission(report);
    env.dispatch.runGlobal();
    env.http.fail(env.http.requests().size() - 1, -1001);
  }

  // Leaves a file behind as an earlier process would have.
  void putReports(Array reports) {
    env.files.put(kReportsFile, *property_list::write(std::move(reports)));
  }

  static Dictionary storedAd(const std::string& network) {
    return Dictionary{{"type", "ReportTypeAdAttempt"}, {"network", network}};
  }

  std::vector<std::string> storedNetworks() const {
    std::vector<std::string> networks;
    for (const Dictionary& report : storedReports(env.files)) {
      networks.push_back(textOf(report, "network"));
    }
    return networks;
  }

  static std::vector<std::string> networksIn(ZLNReportingManager& manager) {
    std::vector<std::string> networks;
    for (const auto& operation : manager.reportQueue().operations()) {
      const auto report = std::dynamic_pointer_cast<ZLNReportOperationBase>(operation)->report();
      networks.push_back(textOf(*report->toDictionary(), "network"));
    }
    return networks;
  }
};

// Saving.

TEST_F(ZLNReportingManagerFileTest, LiesInTheReportingFolder) {
  EXPECT_EQ("/support/com.zelnor.sdk/reporting/reports.json",
            ZLNReportingManager::savedReportsPath());
}

TEST_F(ZLNReportingManagerFileTest, NothingOwedIsAnEmptyArray) {
  beginSuspended().saveReports();

  EXPECT_EQ(kEmptyFile, env.files.contents(kReportsFile));
  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: saved 0 reports"));
}

TEST_F(ZLNReportingManagerFileTest, IsAPropertyListOfTheDictionaries) {
  ZLNReportingManager& manager = beginSuspended();

  manager.queueReportForTransmission(adReport());

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

TEST_F(ZLNReportingManagerFileTest, TheFailureCountIsNotStored) {
  ZLNReportingManager& manager = beginSuspended();
  const auto report = adReport();
  report->setTemporaryFailureCount(2);

  manager.queueReportForTransmission(report);

  EXPECT_THAT(keysOf(storedReports(env.files).at(0)),
              ElementsAre("adEventId", "adType", "bundleId", "country", "device", "fill", "network",
                          "platform", "type", "userId"));
}

TEST_F(ZLNReportingManagerFileTest, ListsHeldReportsBeforeQueuedOnesEachInTheirOrder) {
  ZLNReportingManager& manager = beginHolding();
  hold(manager, adReport("held first"));
  hold(manager, adReport("held second"));

  manager.queueReportForTransmission(adReport("queued first"));
  manager.queueReportForTransmission(adReport("queued second"));

  EXPECT_THAT(storedNetworks(),
              ElementsAre("held first", "held second", "queued first", "queued second"));
}

TEST_F(ZLNReportingManagerFileTest, ListsARunningReport) {
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());
  env.dispatch.runGlobal();

  manager.saveReports();

  EXPECT_EQ(1u, env.http.outstanding());
  EXPECT_THAT(storedNetworks(), ElementsAre("net"));
}

TEST_F(ZLNReportingManagerFileTest, LeavesADeliveredReportOutWhoseOperationIsStillInTheQueue) {
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport("delivered"));
  manager.queueReportForTransmission(adReport("other"));
  env.dispatch.runGlobal();

  env.http.reply(0, kAccepted);

  // The only write since: it was made before the operation left the queue.
  EXPECT_EQ(3u, env.files.writeCount(kReportsFile));
  EXPECT_THAT(storedNetworks(), ElementsAre("other"));
}

TEST_F(ZLNReportingManagerFileTest, LeavesOutOnlyTheSameObject) {
  ZLNReportingManager& manager = beginSuspended();
  const auto report = ZLNReportAdAttempt::initWithDictionary(storedAd("same"));
  const auto twin = ZLNReportAdAttempt::initWithDictionary(storedAd("same"));
  manager.queueReportForTransmission(report);
  manager.queueReportForTransmission(twin);

  manager.saveReportsExcept({report});

  EXPECT_THAT(storedNetworks(), ElementsAre("same"));
}

TEST_F(ZLNReportingManagerFileTest, LeavesOutSeveralAndSaysNothingOfThem) {
  ZLNReportingManager& manager = beginSuspended();
  const auto first = adReport("first");
  const auto third = adReport("third");
  manager.queueReportForTransmission(first);
  manager.queueReportForTransmission(adReport("second"));
  manager.queueReportForTransmission(third);
  newLines();

  manager.saveReportsExcept({first, third});

  EXPECT_THAT(storedNetworks(), ElementsAre("second"));
  EXPECT_THAT(newLines(), ElementsAre(kSaving, "ZLN Session: saved 1 reports"));
}

TEST_F(ZLNReportingManagerFileTest, AHeldReportIsWrittenAlsoWhenItIsToBeLeftOut) {
  ZLNReportingManager& manager = beginHolding();
  const auto report = adReport("held");
  hold(manager, report);
  newLines();

  manager.saveReportsExcept({report});

  EXPECT_THAT(storedNetworks(), ElementsAre("held"));
  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: saved 1 reports"));
}

TEST_F(ZLNReportingManagerFileTest, AQueuedReportWithoutADictionaryIsLeftOutAndStaysQueued) {
  ZLNReportingManager& manager = beginSuspended();
  manager.queueReportForTransmission(std::make_shared<OddReport>(std::nullopt));
  newLines();

  manager.queueReportForTransmission(adReport("sound"));

  EXPECT_THAT(newLines(),
              ElementsAre("ZLN Session: queue report <ZLNReportAdAttempt: 0x*>",
                          "ZLN Session: invalid super serialization (null) ((null))",
                          "ZLN Session: unable to serialize report <ZLNReportSessionStop: 0x*>",
                          kSaving, "ZLN Session: saved 1 reports"));
  EXPECT_THAT(storedNetworks(), ElementsAre("sound"));
  EXPECT_EQ(2u, manager.reportQueue().operationCount());
}

TEST_F(ZLNReportingManagerFileTest, AHeldReportWithoutADictionaryIsLeftOutAndStaysHeld) {
  ZLNReportingManager& manager = beginHolding();
  const auto report = std::make_shared<OddReport>(Dictionary{{"odd", "entry"}});
  hold(manager, report);
  hold(manager, adReport("sound"));
  newLines();

  report->base = std::nullopt;
  manager.saveReports();

  EXPECT_THAT(newLines(),
              ElementsAre("ZLN Session: invalid super serialization (null) ((null))",
                          "ZLN Session: unable to serialize report <ZLNReportSessionStop: 0x*>",
                          "ZLN Session: saved 1 reports"));
  EXPECT_THAT(storedNetworks(), ElementsAre("sound"));
  EXPECT_EQ(2u, manager.temporaryErrorReports().size());
}

TEST_F(ZLNReportingManagerFileTest, AnOperationThatLostItsReportIsLeftOut) {
  ZLNReportingManager& manager = beginSuspended();
  manager.queueReportForTransmission(adReport());
  const auto operation =
      std::dynamic_pointer_cast<ZLNReportOperationBase>(manager.reportQueue().operations()[0]);
  operation->setReport(nullptr);
  newLines();

  manager.saveReports();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: unable to serialize report (null)",
                                      "ZLN Session: saved 0 reports"));
}

TEST_F(ZLNReportingManagerFileTest, AnOperationOfAnotherKindIsSkipped) {
  ZLNReportingManager& manager = beginSuspended();
  manager.reportQueue().addOperation(std::make_shared<ForeignOperation>());
  manager.queueReportForTransmission(adReport());

  EXPECT_THAT(newLines(),
              ElementsAre("ZLN Session: queue report <ZLNReportAdAttempt: 0x*>",
                          "ZLN Session: unexpected report in op queue: foreign operation", kSaving,
                          "ZLN Session: saved 1 reports"));
  EXPECT_THAT(storedNetworks(), ElementsAre("net"));
}

TEST_F(ZLNReportingManagerFileTest, AFailedWriteIsToldWithTheNumberAndLosesNothing) {
  ZLNReportingManager& manager = beginSuspended();
  manager.queueReportForTransmission(adReport("first"));
  env.files.failWrites();
  newLines();

  EXPECT_TRUE(manager.queueReportForTransmission(adReport("second")));

  EXPECT_THAT(newLines(),
              ElementsAre("ZLN Session: queue report <ZLNReportAdAttempt: 0x*>", kSaving, kSaving,
                          "ZLN Session: failed to save 2 pending reports!"));
  EXPECT_THAT(storedNetworks(), ElementsAre("first"));
  EXPECT_EQ(2u, manager.reportQueue().operationCount());
}

TEST_F(ZLNReportingManagerFileTest, AFailedWriteIsAWarning) {
  ZLNReportingManager& manager = beginSuspended();
  env.files.failWrites();
  setLevel(1);

  manager.saveReports();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: failed to save 0 pending reports!"));
}

TEST_F(ZLNReportingManagerFileTest, AtErrorAFailedWriteIsNotSaid) {
  ZLNReportingManager& manager = beginSuspended();
  env.files.failWrites();
  setLevel(0);

  manager.saveReports();

  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(ZLNReportingManagerFileTest, WhatCannotBeSavedIsAnError) {
  putSettings({{"ConfigSerializationKeyTransmitReportsImmediately", Number::boolean(false)},
               {"ConfigSerializationKeyReportTemporaryFailureLimit", Number::int32(1)}});
  ZLNReportingManager& manager = begin();
  const auto held = std::make_shared<OddReport>(Dictionary{});
  manager.queueReportForTransmission(held);
  manager.transmitPendingReports();
  env.dispatch.runGlobal();
  env.http.fail(0, -1001);
  held->base = std::nullopt;
  manager.queueReportForTransmission(std::make_shared<OddReport>(std::nullopt));
  manager.reportQueue().addOperation(std::make_shared<ForeignOperation>());
  setLevel(0);
  newLines();

  manager.saveReports();

  EXPECT_THAT(newLines(),
              ElementsAre("ZLN Session: invalid super serialization (null) ((null))",
                          "ZLN Session: unable to serialize report <ZLNReportSessionStop: 0x*>",
                          "ZLN Session: invalid super serialization (null) ((null))",
                          "ZLN Session: unable to serialize report <ZLNReportSessionStop: 0x*>",
                          "ZLN Session: unexpected report in op queue: foreign operation"));
}

TEST_F(ZLNReportingManagerFileTest, WithoutItsFolderTheWriteFails) {
  Error error;
  env.files.remove("/support/com.zelnor.sdk/reporting", &error);

  beginSuspended().saveReports();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: failed to save 0 pending reports!"));
}

TEST_F(ZLNReportingManagerFileTest, AValueThatAPropertyListCannotHoldFailsTheWrite) {
  ZLNReportingManager& manager = beginSuspended();
  manager.queueReportForTransmission(adReport("first"));

  manager.queueReportForTransmission(std::make_shared<OddReport>(Dictionary{{"odd", Null{}}}));

  EXPECT_THAT(log().lines(), Contains("ZLN Session: failed to save 2 pending reports!"));
  EXPECT_THAT(storedNetworks(), ElementsAre("first"));
  EXPECT_EQ(2u, manager.reportQueue().operationCount());
}

TEST_F(ZLNReportingManagerFileTest, ASaveReplacesWhateverTheFileHeld) {
  ZLNReportingManager& manager = beginSuspended();
  env.files.put(kReportsFile, "something else");

  manager.saveReports();

  EXPECT_EQ(kEmptyFile, env.files.contents(kReportsFile));
}

TEST_F(ZLNReportingManagerFileTest, ASaveThatIsOvertakenLosesNothingOfTheLaterOne) {
  HookedProcess process(env);
  setLevel(4);
  const auto manager = ZLNReportingManager::sharedManager();
  manager->queueReportForTransmission(adReport("early"));
  // While the next save writes its snapshot down, another report is queued and saved.
  process.when("ZLN Session: saving report",
               [&] { manager->queueReportForTransmission(adReport("late")); });

  manager->saveReports();

  EXPECT_THAT(storedNetworks(), ElementsAre("early", "late"));
}

TEST_F(ZLNReportingManagerFileTest, TheFileIsNeverDeleted) {
  ZLNReportingManager& manager = begin();
  manager.queueReportForTransmission(adReport());
  env.dispatch.runGlobal();

  env.http.reply(0, kAccepted);

  EXPECT_EQ(kEmptyFile, env.files.contents(kReportsFile));
  EXPECT_THAT(env.files.removed(), IsEmpty());
}

TEST_F(ZLNReportingManagerFileTest, WhatXmlCannotHoldIsStoredAsTheReplacementCharacter) {
  ZLNReportingManager& manager = beginSuspended();
  const std::string odd = std::string("\0\x01\x1f\t\n\"'<&>", 10) + "\u00e9\U0001F3AE\uFFFF";

  manager.queueReportForTransmission(adReport(odd));

  EXPECT_THAT(storedNetworks(), ElementsAre("\uFFFD\uFFFD\uFFFD\t\n\"'<&>\u00e9\U0001F3AE\uFFFD"));
}

TEST_F(ZLNReportingManagerFileTest, ALongTextComesBackWhole) {
  ZLNReportingManager& manager = beginSuspended();
  const std::string text = "<" + std::string(65536, 'x') + "\U0001F3AE>";

  manager.queueReportForTransmission(adReport(text));

  EXPECT_THAT(storedNetworks(), ElementsAre(text));
}

// Loading.

TEST_F(ZLNReportingManagerFileTest, WithoutAFileNothingIsLoadedAndNothingSaid) {
  setLevel(4);

  ZLNReportingManager::sharedManager();
  newLines();
  env.dispatch.runGlobal();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: transmit reports"));
  EXPECT_EQ(std::nullopt, env.files.contents(kReportsFile));
}

TEST_F(ZLNReportingManagerFileTest, IsLoadedByTheStartUpTaskAndSentAtOnce) {
  putReports({storedAd("stored")});
  setLevel(4);

  const auto manager = ZLNReportingManager::sharedManager();
  newLines();

  EXPECT_EQ(0u, manager->reportQueue().operationCount());

  env.dispatch.runGlobal();

  EXPECT_EQ(
      (std::vector<std::string>{
          std::string("ZLN Session: recovered report <ZLNReportAdAttempt: 0x*> to ") +
              kAdAttemptUrl,
          "ZLN Session: queue report <ZLNReportAdAttempt: 0x*>", "ZLN Session: transmit reports",
          "ZLN Session: manager background task started 1", kSaving, "ZLN Session: saved 1 reports",
          "ZLN Session: transmit reports",
          std::string("ZLN Session: posting report <ZLNReportAdAttempt: 0x*> to ") + kAdAttemptUrl,
          R"(ZLN Session: sending report: {"userId":"USER","country":"DE",)"
          R"("type":"ReportTypeAdAttempt","device":"iPhone14,5","platform":"iOS",)"
          R"("bundleId":"com.example.game","network":"stored","adType":"unknown","fill":false})"}),
      newLines());
  EXPECT_EQ(1u, env.http.requests().size());
}

TEST_F(ZLNReportingManagerFileTest, AtDebugRecoveredReportsAreNotSaid) {
  putReports({storedAd("stored")});
  putSettings({{"ConfigSerializationKeyTransmitReportsImmediately", Number::boolean(false)}});
  setLevel(3);

  ZLNReportingManager::sharedManager();
  newLines();
  env.dispatch.runGlobal();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: queue report <ZLNReportAdAttempt: 0x*>",
                                      "ZLN Session: saved 1 reports"));
}

TEST_F(ZLNReportingManagerFileTest, IsLoadedInItsOrder) {
  putReports({storedAd("a"), storedAd("b"), storedAd("c"), storedAd("d")});

  EXPECT_THAT(networksIn(beginSuspended()), ElementsAre("a", "b", "c", "d"));
}

TEST_F(ZLNReportingManagerFileTest, AnElementThatIsNoReportIsToldAndDropped) {
  putReports(
      {storedAd("a"), Dictionary{{"type", "ReportTypeOther"}}, storedAd("b"), storedAd("c")});
  putSettings({{"ConfigSerializationKeyTransmitReportsImmediately", Number::boolean(false)}});

  const auto manager = ZLNReportingManager::sharedManager();
  env.dispatch.runGlobal();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: unknown report type ReportTypeOther",
                                      "ZLN Session: unable to recover report from {\n    type = "
                                      "ReportTypeOther;\n}"));
  EXPECT_THAT(networksIn(*manager), ElementsAre("a", "b", "c"));
  EXPECT_THAT(storedNetworks(), ElementsAre("a", "b", "c"));
  EXPECT_EQ(3u, env.files.writeCount(kReportsFile));
}

TEST_F(ZLNReportingManagerFileTest, AnElementThatIsNoDictionaryIsToldAndDropped) {
  putReports({"text", Number::int64(3), Array{}, storedAd("a")});

  ZLNReportingManager& manager = *ZLNReportingManager::sharedManager();
  env.dispatch.runGlobal();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: unable to recover report from text",
                                      "ZLN Session: unable to recover report from 3",
                                      "ZLN Session: unable to recover report from (\n)"));
  EXPECT_THAT(networksIn(manager), ElementsAre("a"));
}

TEST_F(ZLNReportingManagerFileTest, AFileOfInvalidElementsAloneStaysUntilTheNextSave) {
  putReports({"text"});

  ZLNReportingManager& manager = beginSuspended();

  EXPECT_EQ(0u, env.files.writeCount(kReportsFile));

  manager.saveReports();

  EXPECT_EQ(kEmptyFile, env.files.contents(kReportsFile));
}

struct UnreadableFile {
  const char* name;
  std::string bytes;
};

class ZLNReportingManagerUnreadableFileTest : public ZLNReportingManagerFileTest,
                                              public testing::WithParamInterface<UnreadableFile> {};

INSTANTIATE_TEST_SUITE_P(
    Files, ZLNReportingManagerUnreadableFileTest,
    testing::Values(UnreadableFile{"Empty", ""}, UnreadableFile{"Text", "no property list"},
                    UnreadableFile{"Json", R"([{"type":"ReportTypeAdAttempt"}])"},
                    UnreadableFile{"Dictionary", R"(<plist version="1.0"><dict/></plist>)"},
                    UnreadableFile{"CutShort", std::string(kEmptyFile).substr(0, 180)},
                    UnreadableFile{"BinaryRubbish", std::string("bplist00\xFF\xFF\xFF", 11)},
                    UnreadableFile{"DeeplyNested",
                                   [] {
                                     std::string bytes = "<plist version=\"1.0\">";
                                     for (int level = 0; level < 100000; ++level)
                                       bytes += "<array>";
                                     for (int level = 0; level < 100000; ++level)
                                       bytes += "</array>";
                                     return bytes + "</plist>";
                                   }()}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_P(ZLNReportingManagerUnreadableFileTest, IsIgnoredWithoutAWordAndStays) {
  env.files.put(kReportsFile, GetParam().bytes);
  setLevel(4);

  const auto manager = ZLNReportingManager::sharedManager();
  newLines();
  env.dispatch.runGlobal();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: transmit reports"));
  EXPECT_EQ(0u, manager->reportQueue().operationCount());
  EXPECT_EQ(GetParam().bytes, env.files.contents(kReportsFile));
}

TEST_F(ZLNReportingManagerFileTest, TheBinaryFormIsReadToo) {
  env.files.put(kReportsFile, std::string(std::begin(kBinaryFile), std::end(kBinaryFile)));

  ZLNReportingManager& manager = *ZLNReportingManager::sharedManager();
  env.dispatch.runGlobal();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: unable to recover report from 3"));
  ASSERT_EQ(1u, manager.reportQueue().operationCount());
  EXPECT_EQ((Dictionary{{"type", "ReportTypeSessionStart"},
                        {"userId", "EARLIER"},
                        {"country", "FR"},
                        {"sessionId", "SESSION \U0001F3AE"},
                        {"startTime", Number::int64(1700000000)}}),
            sentReports(env.http)[0].body);
}

TEST_F(ZLNReportingManagerFileTest, AKindSwitchedOffMeanwhileIsNotTakenUp) {
  putReports(
      {Dictionary{{"type", "ReportTypeSessionStop"}, {"network", "dropped"}}, storedAd("kept")});
  putSettings({{"ConfigSerializationKeySendStopSessionReports", Number::boolean(false)}});

  ZLNReportingManager& manager = *ZLNReportingManager::sharedManager();
  env.dispatch.runGlobal();

  EXPECT_THAT(networksIn(manager), ElementsAre("kept"));
  EXPECT_THAT(storedNetworks(), ElementsAre("kept"));
}

TEST_F(ZLNReportingManagerFileTest, IsReadOnceInAProcess) {
  ZLNReportingManager& manager = beginSuspended();
  putReports({storedAd("late")});

  env.app.enterForeground();
  env.dispatch.runGlobal();

  EXPECT_EQ(0u, manager.reportQueue().operationCount());
}

TEST_F(ZLNReportingManagerFileTest, AReportQueuedBeforeTheStoredOnesAreLoadedLosesNone) {
  putReports({storedAd("stored")});
  putSettings({{"ConfigSerializationKeyTransmitReportsImmediately", Number::boolean(false)}});
  const auto manager = ZLNReportingManager::sharedManager();

  manager->queueReportForTransmission(adReport("new"));
  env.dispatch.runGlobal();

  EXPECT_THAT(networksIn(*manager), ElementsAre("new", "stored"));
  EXPECT_THAT(storedNetworks(), ElementsAre("new", "stored"));
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
  putReports(reports);

  beginSuspended();

  const std::vector<Dictionary> stored = storedReports(env.files);
  ASSERT_EQ(7u, stored.size());
  for (std::size_t index = 0; index < 7; ++index) {
    EXPECT_EQ(kinds[index], *stored[index].find("network"));
    EXPECT_EQ(kinds[index], *stored[index].find("adType"));
    EXPECT_EQ(kinds[index], *stored[index].find("adEventId"));
  }
}

TEST_F(ZLNReportingManagerFileTest, AStoredDateCannotBeSentAndIsDropped) {
  putReports({Dictionary{{"type", "ReportTypeAdAttempt"}, {"network", Date{1700000000}}}});

  ZLNReportingManager& manager = *ZLNReportingManager::sharedManager();
  env.dispatch.runGlobal();

  EXPECT_EQ(0u, manager.reportQueue().operationCount());
  EXPECT_THAT(env.http.requests(), IsEmpty());
  EXPECT_THAT(storedReports(env.files), IsEmpty());
}

TEST_F(ZLNReportingManagerFileTest, AUserIdentifierThatIsANumberIsStoredAndSent) {
  env.defaults.set("com.zelnor.sessionUserId", Number::int64(7));

  begin().queueReportForTransmission(adReport());
  env.dispatch.runGlobal();

  EXPECT_EQ(7, numberOf(storedReports(env.files).at(0), "userId"));
  EXPECT_EQ(7, numberOf(sentReports(env.http).at(0).body, "userId"));
}

TEST_F(ZLNReportingManagerFileTest, AUserIdentifierThatIsADateIsStoredButCannotBeSent) {
  env.defaults.set("com.zelnor.sessionUserId", Date{1700000000});
  ZLNReportingManager& manager = begin();

  manager.queueReportForTransmission(adReport());

  EXPECT_EQ(Value(Date{1700000000}), *storedReports(env.files).at(0).find("userId"));

  env.dispatch.runGlobal();

  EXPECT_EQ(0u, manager.reportQueue().operationCount());
  EXPECT_THAT(env.http.requests(), IsEmpty());
}

// From one process to the next.

TEST_F(ZLNReportingManagerFileTest, APendingReportComesBackInTheNextProcess) {
  begin().queueReportForTransmission(adReport("pending"));

  restart();
  ZLNReportingManager& manager = begin();

  EXPECT_THAT(networksIn(manager), ElementsAre("pending"));
  EXPECT_THAT(storedNetworks(), ElementsAre("pending"));
}

TEST_F(ZLNReportingManagerFileTest, ADeliveredReportDoesNotComeBack) {
  begin().queueReportForTransmission(adReport());
  env.dispatch.runGlobal();
  env.http.reply(0, kAccepted);

  restart();

  EXPECT_EQ(0u, begin().reportQueue().operationCount());
}

TEST_F(ZLNReportingManagerFileTest, AHeldReportComesBackAsAPendingOneWithoutFailures) {
  ZLNReportingManager& manager = begin();
  const auto report = adReport("held");
  manager.queueReportForTransmission(report);
  for (std::size_t attempt = 0; attempt < 3; ++attempt) {
    env.dispatch.runGlobal();
    env.http.fail(attempt, -1001);
  }
  ASSERT_THAT(manager.temporaryErrorReports(), ElementsAre(report));

  restart();
  ZLNReportingManager& next = begin();

  EXPECT_THAT(next.temporaryErrorReports(), IsEmpty());
  ASSERT_THAT(networksIn(next), ElementsAre("held"));
  const auto operation = next.reportQueue().operations()[0];
  EXPECT_EQ(0, std::dynamic_pointer_cast<ZLNReportOperationBase>(operation)
                   ->report()
                   ->temporaryFailureCount());
}

TEST_F(ZLNReportingManagerFileTest, AReportListedTwiceComesBackTwice) {
  begin().queueReportForTransmission(adReport());
  env.dispatch.runGlobal();
  env.http.fail(0, -1001);

  restart();

  EXPECT_THAT(networksIn(begin()), ElementsAre("net", "net"));
}

TEST_F(ZLNReportingManagerFileTest, ASessionComesBackWithTimesOf128Seconds) {
  const auto session = ZLNSession::initWithStartTime(Date{1700000050});
  session->pause(Date{1700000100});
  session->stop(Date{1700000100});
  begin().queueReportForTransmission(ZLNReportSessionStop::reportWithSession(session));

  restart();
  begin();

  const Dictionary sent = sentReports(env.http).at(0).body;
  EXPECT_EQ(1700000000, numberOf(sent, "startTime"));
  EXPECT_EQ(1700000128, numberOf(sent, "stopTime"));
  EXPECT_EQ(50, numberOf(sent, "totalDuration"));
}

// Restoring what is held.

TEST_F(ZLNReportingManagerFileTest, RestoringNothingSaysSoAndQueuesNothing) {
  ZLNReportingManager& manager = beginSuspended();

  manager.restoreTemporaryErrorReports();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: temporary error\"d reports restoring"));
  EXPECT_EQ(0u, manager.reportQueue().operationCount());
  EXPECT_EQ(std::nullopt, env.files.contents(kReportsFile));
}

TEST_F(ZLNReportingManagerFileTest, RestoringQueuesTheHeldReportsInTheirOrderWithoutFailures) {
  ZLNReportingManager& manager = beginHolding();
  const auto first = adReport("first");
  const auto second = adReport("second");
  hold(manager, first);
  hold(manager, second);
  newLines();

  manager.restoreTemporaryErrorReports();

  EXPECT_THAT(newLines(), ElementsAre("ZLN Session: temporary error\"d reports restoring",
                                      "ZLN Session: queue report <ZLNReportAdAttempt: 0x*>",
                                      "ZLN Session: transmit reports",
                                      "ZLN Session: manager background task started 3", kSaving,
                                      "ZLN Session: saved 1 reports",
                                      "ZLN Session: queue report <ZLNReportAdAttempt: 0x*>",
                                      "ZLN Session: transmit reports", kSaving, kSaving,
                                      "ZLN Session: saved 2 reports"));
  EXPECT_EQ(0, first->temporaryFailureCount());
  EXPECT_EQ(0, second->temporaryFailureCount());
  EXPECT_THAT(manager.temporaryErrorReports(), IsEmpty());
  EXPECT_THAT(networksIn(manager), ElementsAre("first", "second"));
}

TEST_F(ZLNReportingManagerFileTest, EachReportThatIsRestoredIsSavedByItself) {
  HookedProcess process(env);
  ZLNReportingManager& manager = beginHolding();
  for (const char* network : {"first", "second"}) hold(manager, adReport(network));
  std::vector<std::string> stored;
  process.when("ZLN Session: saved 1 reports", [&] { stored = storedNetworks(); });

  manager.restoreTemporaryErrorReports();

  EXPECT_THAT(stored, ElementsAre("first"));
  EXPECT_THAT(storedNetworks(), ElementsAre("first", "second"));
}

TEST_F(ZLNReportingManagerFileTest, ARestoredReportOfAKindSwitchedOffIsDropped) {
  ZLNReportingManager& manager = beginHolding();
  hold(manager,
       ZLNReportSessionStart::reportWithSession(ZLNSession::initWithStartTime(Date{1700000000})));
  ZLNReportingConfig::sharedConfig()->setSendStartSessionReports(false);

  manager.restoreTemporaryErrorReports();

  EXPECT_EQ(0u, manager.reportQueue().operationCount());
  EXPECT_THAT(manager.temporaryErrorReports(), IsEmpty());
}

}  // namespace
}  // namespace zln
