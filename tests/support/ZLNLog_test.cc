#include "ZLNSessionReporting/ZLNLog.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "support/log.h"
#include "tests/support/host_fixture.h"

namespace zln {
namespace {

using Lines = std::vector<std::string>;

class ZLNLogTest : public HostTest {
 protected:
  // With the functions for games and with those used inside.
  void expectFirstLevels(std::size_t count) {
    const Lines all = {"error", "warn", "info", "debug", "verbose", "super verbose"};
    const Lines expected(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(count));

    ZLNLogError("error");
    ZLNLogWarn("warn");
    ZLNLogInfo("info");
    ZLNLogDebug("debug");
    ZLNLogVerbose("verbose");
    ZLNLogSuperVerbose("super verbose");

    EXPECT_EQ(expected, newLines());

    logError("error");
    logWarn("warn");
    logInfo("info");
    logDebug("debug");
    logVerbose("verbose");
    logSuperVerbose("super verbose");

    EXPECT_EQ(expected, newLines());
  }
};

TEST_F(ZLNLogTest, ALineBeginsWithTheNameOfTheLibrary) {
  ZLNLogError("error");
  logError("error");
  internalLog("error", 0);

  EXPECT_EQ((Lines{"ZLN Session: error", "ZLN Session: error", "ZLN Session: error"}),
            log().lines());
}

TEST_F(ZLNLogTest, AtFirstInEachProcessOnlyErrorsAreWritten) {
  expectFirstLevels(1);

  ZLNLogSetLevel(5);
  restart();

  expectFirstLevels(1);
}

TEST_F(ZLNLogTest, EachLevelAddsItsLinesAndThoseAboveFiveNone) {
  struct Row {
    std::uint64_t level;
    std::size_t lines;
  };
  for (const auto& [level, lines] : std::vector<Row>{{1, 2},
                                                     {2, 3},
                                                     {3, 4},
                                                     {4, 5},
                                                     {5, 6},
                                                     {6, 6},
                                                     {1000, 6},
                                                     {std::numeric_limits<std::uint64_t>::max(), 6},
                                                     {0, 1}}) {
    SCOPED_TRACE(level);

    ZLNLogSetLevel(level);

    EXPECT_EQ(level, processState().currentLogLevel.get());
    expectFirstLevels(lines);
  }
}

TEST_F(ZLNLogTest, EveryFunctionFormatsItsArguments) {
  ZLNLogSetLevel(5);

  ZLNLogError("%@ %i", "error", 0);
  ZLNLogWarn("%@ %i", "warn", 1);
  ZLNLogInfo("%@ %i", "info", 2);
  ZLNLogDebug("%@ %lu", "debug", 3ul);
  ZLNLogVerbose("%@ %f", "verbose", 4.5);
  ZLNLogSuperVerbose("%@ %s", "super verbose", "five");

  expectLines({"error 0", "warn 1", "info 2", "debug 3", "verbose 4.500000", "super verbose five"});

  logError("error %i", 0);
  logWarn("warn %i", 1);
  logInfo("info %i", 2);
  logDebug("debug %i", 3);
  logVerbose("verbose %i", 4);
  logSuperVerbose("super verbose %i", 5);

  expectLines({"error 0", "warn 1", "info 2", "debug 3", "verbose 4", "super verbose 5"});
}

struct CountedObject {
  std::string description() const { return std::to_string(++*count); }
  int* count;
};

TEST_F(ZLNLogTest, AnObjectIsDescribedDuringTheCallAndOnlyForALineThatIsWritten) {
  int count = 0;
  const CountedObject object{&count};

  logDebug("%@", object);
  EXPECT_EQ(0, count);
  setLevel(3);
  logDebug("%@", object);
  EXPECT_EQ(1, count);

  expectLines({"1"});
}

TEST_F(ZLNLogTest, AnAbsentObjectIsShownAsNull) {
  ZLNLogError("device %@ of %@", static_cast<const char*>(nullptr), "DE");
  logError("%@ and %@", std::optional<std::string>(), std::optional<std::string>("some"));
  internalLog(nullptr, 0);

  expectLines({"device (null) of DE", "(null) and some", "(null)"});
}

TEST_F(ZLNLogTest, AFinishedMessageIsNotTakenForAFormatAndMayBeEmpty) {
  ZLNLogError("%@", "100%@ of %i");
  ZLNLogError("");
  internalLog("100%@ of %i", 0);

  expectLines({"100%@ of %i", "", "100%@ of %i"});
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

  expectLines({});
}

TEST_F(ZLNLogTest, InternalLogWritesAMessageWhoseLevelIsLetThroughAsItIsGiven) {
  internalLog("zero", 0);
  internalLog("one", 1);
  ZLNLogSetLevel(3);
  internalLog("two", 2);
  internalLog("three", 3);
  internalLog("four", 4);
  ZLNLogSetLevel(1000);
  internalLog("thousand", 1000);
  internalLog("more", 1001);
  internalLog("most", std::numeric_limits<std::uint64_t>::max());

  expectLines({"zero", "two", "three", "thousand"});
}

TEST_F(ZLNLogTest, InternalLogMendsWhatIsNotUtf8) {
  internalLog("a\xFFz", 0);

  expectLines({"a\uFFFDz"});
}

}  // namespace
}  // namespace zln
