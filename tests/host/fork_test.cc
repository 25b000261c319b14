#include <gmock/gmock.h>
#include <sys/wait.h>

#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

#include "tests/host/played_game.h"

namespace zln {
namespace {

using testing::IsEmpty;

// What forking_host says of a child in which all went as it should.
constexpr char kAllWell[] = "7\n";
constexpr char kWorkedInChild[] = "10\n";
constexpr char kAborted[] = "1006\n";

std::string contentOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

class ForkTest : public PlayedGameTest {
 protected:
  // A host whose requests are all under way for as long as the test takes.
  void launchWithSilentServer() {
    server.setFault(ConnectionFault::kNoHandshake);
    launchHost();
    tell("begin");
    for (int count = 0; count < 5; ++count) tell("banner");
  }

  void launchHost() {
    // A child lacks the threads whose stacks hold what is in use; it would be called leaked.
    environment["ASAN_OPTIONS"] = "detect_leaks=0";
    environment["TSAN_OPTIONS"] = "die_after_fork=0 atexit_sleep_ms=0";
    game = std::make_unique<ChildProcess>(ZLN_FORKING_HOST, environment, home.path() + "/errors");
  }

  void endHost(const std::string& way = "") {
    game->send(way);
    game.reset();
  }

  // All files of the library and when they were written last.
  std::string files() const {
    std::ostringstream text;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(home.path())) {
      text << entry.path() << " ";
      if (entry.is_regular_file()) {
        text << entry.last_write_time().time_since_epoch().count() << " "
             << contentOf(entry.path());
      }
      text << "\n";
    }
    return text.str();
  }

  // The parent goes on as it should: what it queues now is delivered, once.
  void expectThatTheParentGoesOn() {
    server.setFault(ConnectionFault::kNone);
    tell("banner");
    EXPECT_THAT(waitForReportsHaving("network", "parent", 1), testing::SizeIs(1));
  }
};

TEST_F(ForkTest, EveryFunctionOfTheHeadersIsTried) {
  launchHost();
  std::multiset<std::string> declared;
  const std::regex declaration(R"(\nZLN_EXPORT\s[^;(]*?(\w+)\s*\()");
  for (const auto& header : std::filesystem::directory_iterator(ZLN_HEADER_FOLDER)) {
    const std::string text = contentOf(header.path());
    for (std::sregex_iterator found(text.begin(), text.end(), declaration), end; found != end;
         ++found) {
      declared.insert((*found)[1]);
    }
  }

  std::multiset<std::string> tried;
  std::istringstream names(tell("functions"));
  for (std::string name; names >> name;) tried.insert(name);

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
  launchHost();
  tell("begin");
  waitForReportsHaving("type", "ReportTypeSessionFirst", 1);

  EXPECT_EQ(expectedStatus(), tell(GetParam())) << game->errors();

  expectThatTheParentGoesOn();
  // The child has sent nothing of its own.
  EXPECT_THAT(having(reports(), "network", "n"), IsEmpty());
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

  const std::string open = tell("list-after-exec");

  EXPECT_EQ(std::string::npos, open.find(home.path())) << "It has these open:\n" << open;
}

TEST_F(ForkTest, AChildOfTheChildDoesNothingEither) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the thread sanitizer does not go with a second fork";
#endif
  launchWithSilentServer();

  EXPECT_EQ(kAllWell, tell("grandchild")) << game->errors();
}

// What a sanitizer keeps of memory is not whole in a child that is forked while another thread
// allocates. Without one, the C library sees to that.
#if defined(__SANITIZE_ADDRESS__)
#define SKIP_WHERE_MEMORY_DOES_NOT_OUTLIVE_A_FORK() \
  GTEST_SKIP() << "the address sanitizer does not go with forks beside other threads"
#else
#define SKIP_WHERE_MEMORY_DOES_NOT_OUTLIVE_A_FORK() static_cast<void>(0)
#endif

TEST_F(ForkTest, ForksWhileOtherThreadsAreInsideTheLibrary) {
  SKIP_WHERE_MEMORY_DOES_NOT_OUTLIVE_A_FORK();
  launchHost();
  tell("begin");

  EXPECT_EQ(kAllWell, tell("beside-calls")) << game->errors();

  expectThatTheParentGoesOn();
}

TEST_F(ForkTest, ForksOnSeveralThreadsAtOnce) {
  SKIP_WHERE_MEMORY_DOES_NOT_OUTLIVE_A_FORK();
  launchHost();
  tell("begin");

  EXPECT_EQ(kAllWell, tell("on-all-threads")) << game->errors();

  expectThatTheParentGoesOn();
}

TEST_F(ForkTest, ForksWhileOtherThreadsCallTheLibraryForTheFirstTime) {
  SKIP_WHERE_MEMORY_DOES_NOT_OUTLIVE_A_FORK();
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
  launchHost();
  tell("begin");
  tell("leave-child-alone");
  game->kill();
  const std::unique_ptr<ChildProcess> first = std::move(game);
  launchHost();
  tell("begin");

  expectThatTheParentGoesOn();
}

TEST_F(ForkTest, StartingOtherProgramsIsNoFork) {
  launchHost();
  tell("begin");

  EXPECT_EQ(kAllWell, tell("spawn")) << game->errors();
  EXPECT_EQ(kAllWell, tell("vfork")) << game->errors();

  expectThatTheParentGoesOn();
}

}  // namespace
}  // namespace zln
