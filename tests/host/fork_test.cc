#include <gmock/gmock.h>

#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

#include "tests/host/played_game.h"
#include "tests/support/sanitizers.h"

namespace zln {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// What forking_host says of a child in which all went as it should.
constexpr char kAllWell[] = "7\n";
constexpr char kWorkedInChild[] = "10\n";
constexpr char kAborted[] = "1006\n";

class ForkTest : public PlayedGameTest {
 protected:
  // A host whose requests are all under way for as long as the test takes.
  void launchWithSilentServer() {
    silenceServer();
    launchAndBegin();
    for (int count = 0; count < 5; ++count) tell("banner");
    waitUntilAtRest();
  }

  void launchHost() {
    // A child lacks the threads whose stacks hold what is in use; it would be called leaked.
    environment["ASAN_OPTIONS"] = "detect_leaks=0";
    environment["TSAN_OPTIONS"] = "die_after_fork=0 atexit_sleep_ms=0";
    launch(ZLN_FORKING_HOST);
  }

  void launchAndBegin() {
    launchHost();
    tell("begin");
  }

  // All files of the library and when they were written last.
  std::string files() const {
    std::ostringstream text;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(home.path())) {
      text << entry.path() << " ";
      if (entry.is_regular_file()) {
        text << entry.last_write_time().time_since_epoch().count() << " "
             << contentsOf(entry.path());
      }
      text << "\n";
    }
    return text.str();
  }

  // The parent goes on as it should: what it queues now is delivered, once.
  void expectThatTheParentGoesOn() {
    tell("banner");
    expectOneReportHaving("network", "parent");
  }
};

TEST_F(ForkTest, EveryFunctionOfTheHeadersIsTried) {
  launchHost();
  std::multiset<std::string> declared;
  const std::regex declaration(R"(\nZLN_EXPORT\s[^;(]*?(\w+)\s*\()");
  for (const auto& header : std::filesystem::directory_iterator(ZLN_HEADER_FOLDER)) {
    const std::string text = contentsOf(header.path());
    for (std::sregex_iterator found(text.begin(), text.end(), declaration), end; found != end;
         ++found) {
      declared.insert((*found)[1]);
    }
  }

  std::istringstream names(tell("functions"));
  const std::multiset<std::string> tried(std::istream_iterator<std::string>(names), {});

  EXPECT_EQ(declared, tried);
}

class ForkedChildTest : public ForkTest, public testing::WithParamInterface<const char*> {
 protected:
  static const char* expectedStatus() {
    return std::string(GetParam()) == "abort" ? kAborted : kAllWell;
  }
};

TEST_P(ForkedChildTest, DoesNothingWithRequestsUnderWay) {
  launchWithSilentServer();
  const std::string before = files();

  EXPECT_EQ(expectedStatus(), tell(GetParam())) << game->errors();

  EXPECT_EQ(before, files());
  EXPECT_EQ("", game->errors());
}

TEST_P(ForkedChildTest, LeavesItsParentUnharmed) {
  launchAndBegin();
  waitForReportsHaving("type", "ReportTypeSessionFirst", 1);

  EXPECT_EQ(expectedStatus(), tell(GetParam())) << game->errors();

  expectThatTheParentGoesOn();
  // The child has sent nothing of its own.
  EXPECT_THAT(reportsHaving("network", "n"), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Leaving, ForkedChildTest,
                         testing::Values("exit", "_exit", "quick_exit", "abort", "exec"),
                         [](const auto& way) {
                           std::string name = way.param;
                           std::erase(name, '_');
                           return (way.param[0] == '_' ? "at_once_" : "") + name;
                         });

TEST_F(ForkTest, AProgramThatAChildBecomesHasNoneOfTheLibrarysFiles) {
  launchWithSilentServer();

  EXPECT_THAT(tell("list-after-exec"), Not(HasSubstr(home.path())));
}

TEST_F(ForkTest, AChildOfTheChildDoesNothingEither) {
  if (kThreadSanitizerMayLockChildren) GTEST_SKIP() << "GCC's does not go with a second fork";
  launchWithSilentServer();

  EXPECT_EQ(kAllWell, tell("grandchild")) << game->errors();
}

// Of a child that is forked while other threads allocate.
class BusyForkTest : public ForkTest {
 protected:
  void SetUp() override {
    if (kAddressSanitized)
      GTEST_SKIP() << "the address sanitizer's memory may be torn in the child";
  }
};

TEST_F(BusyForkTest, ForksWhileOtherThreadsAreInsideTheLibrary) {
  launchAndBegin();

  EXPECT_EQ(kAllWell, tell("beside-calls")) << game->errors();

  expectThatTheParentGoesOn();
}

TEST_F(BusyForkTest, ForksOnSeveralThreadsAtOnce) {
  // A thread that the child lacks may hold the spin lock of the sanitizer's table of stacks.
  if (kThreadSanitizerMayLockChildren) GTEST_SKIP() << "GCC's thread sanitizer may hang the child";
  launchAndBegin();

  EXPECT_EQ(kAllWell, tell("on-all-threads")) << game->errors();

  expectThatTheParentGoesOn();
}

TEST_F(BusyForkTest, ForksWhileOtherThreadsCallTheLibraryForTheFirstTime) {
  for (int round = 0; round < 10; ++round) {
    launchHost();

    EXPECT_EQ(kAllWell, tell("beside-first-calls")) << game->errors();
  }

  expectThatTheParentGoesOn();
}

TEST_F(ForkTest, AHostThatForksBeforeItsFirstCallUsesTheLibraryInTheChild) {
  launchHost();

  EXPECT_EQ(kWorkedInChild, tell("use-in-child")) << game->errors();
}

TEST_F(ForkTest, AChildThatOutlivesItsParentStandsInNobodysWay) {
  launchAndBegin();
  tell("leave-child-alone");
  game->kill();
  const std::unique_ptr<ChildProcess> first = std::move(game);
  launchAndBegin();

  expectThatTheParentGoesOn();
}

TEST_F(ForkTest, StartingOtherProgramsIsNoFork) {
  launchAndBegin();

  EXPECT_EQ(kAllWell, tell("spawn")) << game->errors();
  EXPECT_EQ(kAllWell, tell("vfork")) << game->errors();

  expectThatTheParentGoesOn();
}

}  // namespace
}  // namespace zln
