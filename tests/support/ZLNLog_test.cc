#include "ZLNSessionReporting/ZLNLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "support/log.h"
#include "tests/support/host_fixture.h"

namespace zln {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ZLNLogTest : public HostTest {
 protected:
  void logOnEveryLevel() {
    ZLNLogError("error");
    ZLNLogWarn("warn");
    ZLNLogInfo("info");
    ZLNLogDebug("debug");
    ZLNLogVerbose("verbose");
    ZLNLogSuperVerbose("super verbose");
  }
};

TEST_F(ZLNLogTest, AtFirstOnlyErrorsAreWritten) {
  logOnEveryLevel();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: error"));
}

TEST_F(ZLNLogTest, LevelOneAddsWarnings) {
  ZLNLogSetLevel(1);

  logOnEveryLevel();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: error", "ZLN Session: warn"));
}

TEST_F(ZLNLogTest, LevelTwoAddsInformation) {
  ZLNLogSetLevel(2);

  logOnEveryLevel();

  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: error", "ZLN Session: warn", "ZLN Session: info"));
}

TEST_F(ZLNLogTest, LevelThreeAddsDebugLines) {
  ZLNLogSetLevel(3);

  logOnEveryLevel();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: error", "ZLN Session: warn",
                                         "ZLN Session: info", "ZLN Session: debug"));
}

TEST_F(ZLNLogTest, LevelFourAddsVerboseLines) {
  ZLNLogSetLevel(4);

  logOnEveryLevel();

  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: error", "ZLN Session: warn", "ZLN Session: info",
                          "ZLN Session: debug", "ZLN Session: verbose"));
}

TEST_F(ZLNLogTest, LevelFiveWritesEveryLine) {
  ZLNLogSetLevel(5);

  logOnEveryLevel();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: error", "ZLN Session: warn",
                                         "ZLN Session: info", "ZLN Session: debug",
                                         "ZLN Session: verbose", "ZLN Session: super verbose"));
}

TEST_F(ZLNLogTest, AHigherLevelWritesEveryLineAsWell) {
  for (const std::uint64_t level :
       {std::uint64_t{6}, std::uint64_t{1000}, std::numeric_limits<std::uint64_t>::max()}) {
    SCOPED_TRACE(level);
    log().clear();
    ZLNLogSetLevel(level);

    logOnEveryLevel();

    EXPECT_EQ(6u, log().lines().size());
  }
}

TEST_F(ZLNLogTest, TheLevelIsKeptAsItIsGiven) {
  ZLNLogSetLevel(1000);

  EXPECT_EQ(1000u, processState().currentLogLevel.get());
}

TEST_F(ZLNLogTest, LevelZeroSilencesWarningsAgain) {
  ZLNLogSetLevel(5);
  ZLNLogSetLevel(0);

  logOnEveryLevel();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: error"));
}

TEST_F(ZLNLogTest, EachProcessBeginsWithErrorsOnly) {
  ZLNLogSetLevel(5);

  restart();
  logOnEveryLevel();

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: error"));
}

TEST_F(ZLNLogTest, AnAbsentObjectIsShownAsNull) {
  ZLNLogError("device %@ of %@", static_cast<const char*>(nullptr), "DE");

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: device (null) of DE"));
}

TEST_F(ZLNLogTest, EveryFunctionFormatsItsArguments) {
  ZLNLogSetLevel(5);

  ZLNLogError("%@ %i", "error", 0);
  ZLNLogWarn("%@ %i", "warn", 1);
  ZLNLogInfo("%@ %i", "info", 2);
  ZLNLogDebug("%@ %lu", "debug", 3ul);
  ZLNLogVerbose("%@ %f", "verbose", 4.5);
  ZLNLogSuperVerbose("%@ %s", "super verbose", "five");

  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: error 0", "ZLN Session: warn 1", "ZLN Session: info 2",
                          "ZLN Session: debug 3", "ZLN Session: verbose 4.500000",
                          "ZLN Session: super verbose five"));
}

TEST_F(ZLNLogTest, AFinishedMessageIsNotTakenForAFormat) {
  ZLNLogError("%@", "100%@ of %i");

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: 100%@ of %i"));
}

TEST_F(ZLNLogTest, WithoutAFormatNothingIsWritten) {
  ZLNLogSetLevel(5);
  const char* const none = nullptr;

  ZLNLogError(none);
  ZLNLogWarn(none);
  ZLNLogInfo(none);
  ZLNLogDebug(none);
  ZLNLogVerbose(none);
  ZLNLogSuperVerbose(none);

  EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(ZLNLogTest, AnEmptyMessageIsALineOfItsOwn) {
  ZLNLogError("");

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: "));
}

TEST_F(ZLNLogTest, InternalLogWritesAMessageWhoseLevelIsLetThrough) {
  ZLNLogSetLevel(3);

  internalLog("two", 2);
  internalLog("three", 3);
  internalLog("four", 4);

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: two", "ZLN Session: three"));
}

TEST_F(ZLNLogTest, InternalLogAlwaysWritesLevelZero) {
  internalLog("zero", 0);

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: zero"));
}

TEST_F(ZLNLogTest, InternalLogComparesLevelsAsTheyAreGiven) {
  ZLNLogSetLevel(1000);

  internalLog("thousand", 1000);
  internalLog("more", 1001);
  internalLog("most", std::numeric_limits<std::uint64_t>::max());

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: thousand"));
}

TEST_F(ZLNLogTest, InternalLogDoesNotFormat) {
  internalLog("100%@ of %i", 0);

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: 100%@ of %i"));
}

TEST_F(ZLNLogTest, InternalLogShowsAnAbsentMessageAsNull) {
  internalLog(nullptr, 0);

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: (null)"));
}

TEST_F(ZLNLogTest, InternalLogMendsWhatIsNotUtf8) {
  internalLog("a\xFFz", 0);

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: a\uFFFDz"));
}

TEST_F(ZLNLogTest, TheFrontUsedInsideObeysTheSameLevels) {
  setLevel(2);

  logError("error %i", 0);
  logWarn("warn %i", 1);
  logInfo("info %i", 2);
  logDebug("debug %i", 3);
  logVerbose("verbose %i", 4);
  logSuperVerbose("super verbose %i", 5);

  EXPECT_THAT(log().lines(),
              ElementsAre("ZLN Session: error 0", "ZLN Session: warn 1", "ZLN Session: info 2"));
}

TEST_F(ZLNLogTest, TheFrontUsedInsideWritesEveryLevelAtFive) {
  setLevel(5);

  logDebug("debug");
  logVerbose("verbose");
  logSuperVerbose("super verbose");

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: debug", "ZLN Session: verbose",
                                         "ZLN Session: super verbose"));
}

TEST_F(ZLNLogTest, TheFrontUsedInsideShowsAnAbsentObjectAsNull) {
  logError("%@ and %@", std::optional<std::string>(), std::optional<std::string>("some"));

  EXPECT_THAT(log().lines(), ElementsAre("ZLN Session: (null) and some"));
}

}  // namespace
}  // namespace zln
